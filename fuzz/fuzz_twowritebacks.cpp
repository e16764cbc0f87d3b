// SPDX-License-Identifier: MIT
// Two choices written into updateconfig.json, one after the other. The first byte chooses which
// ones. The two versions and the file follow, separated by lines with only "=".

#include "config/global.h"
#include "config/paths.h"
#include "fuzz/support/require.h"
#include "tests/support/testhome.h"

#include <QByteArray>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <QJsonValue>
#include <QString>

#include <array>
#include <cstddef>
#include <cstdint>

namespace
{

const QByteArray kNextPart("\n=\n");
const QString kCurrentVersion = QStringLiteral("currentVersion");
const QString kNoRemindVersion = QStringLiteral("noRemindVersion");
const QString kNoRemind = QStringLiteral("noRemind");

const TestHome &TheHome()
{
    static const TestHome home;
    return home;
}

/// One call: which choice is written, and with which version.
struct Choice {
    QString kind;
    QString version;

    bool Touches(const QString &key) const
    {
        if (kind == QLatin1String("remid"))
            return key == kNoRemindVersion || key == kNoRemind;
        return kind == QLatin1String("version") && key == kCurrentVersion;
    }
};

struct Input {
    std::array<Choice, 2> choices;
    bool hasFile;
    QByteArray file;
};

QString KindOf(int number)
{
    if (number == 3)
        return QStringLiteral("other");
    return number == 0 ? QStringLiteral("version") : QStringLiteral("remid");
}

Input InputOf(const uint8_t *data, size_t size)
{
    const QByteArray text(reinterpret_cast<const char *>(data) + 1, int(size) - 1);
    const int first = text.indexOf(kNextPart);
    const int second = first < 0 ? -1 : text.indexOf(kNextPart, first + kNextPart.size());
    const int start = first + kNextPart.size();
    Input input{};
    input.choices[0] = {KindOf(data[0] & 3), QString::fromUtf8(text.mid(0, first))};
    input.choices[1] = {KindOf(data[0] >> 2 & 3),
                        first < 0
                            ? QString()
                            : QString::fromUtf8(text.mid(start, second < 0 ? -1 : second - start))};
    input.hasFile = second >= 0;
    if (input.hasFile)
        input.file = text.mid(second + kNextPart.size());
    return input;
}

QJsonObject ObjectIn(const QByteArray &text)
{
    return QJsonDocument::fromJson(text).object();
}

bool Parses(const QByteArray &text)
{
    QJsonParseError error{};
    QJsonDocument::fromJson(text, &error);
    return error.error == QJsonParseError::NoError;
}

/// The text that is written when the file contains @p old.
QByteArray TextAfter(const QByteArray &old, bool isNew, const Choice &choice)
{
    QJsonObject object = ObjectIn(old);
    if (choice.kind == QLatin1String("remid")) {
        object.insert(kNoRemindVersion, choice.version);
        object.insert(kNoRemind, 1);
        if (isNew)
            object.insert(kCurrentVersion, QString());
    } else if (choice.kind == QLatin1String("version")) {
        object.insert(kCurrentVersion, choice.version);
        if (isNew) {
            object.insert(kNoRemindVersion, QString());
            object.insert(kNoRemind, 0);
        }
    }
    return QJsonDocument(object).toJson();
}

/// With whole numbers as doubles: Qt reads more digits than a double has, but does not write them.
QJsonValue AsDoubles(const QJsonValue &value)
{
    if (value.isDouble())
        return value.toDouble();
    if (value.isArray()) {
        QJsonArray array;
        for (const QJsonValue member : value.toArray())
            array.append(AsDoubles(member));
        return array;
    }
    if (!value.isObject())
        return value;
    const QJsonObject read = value.toObject();
    QJsonObject object;
    for (auto member = read.begin(); member != read.end(); ++member)
        object.insert(member.key(), AsDoubles(member.value()));
    return object;
}

void RequireOthersKept(const QByteArray &old, const QByteArray &written, const Choice &choice)
{
    // To Qt, a key with a byte order mark is another key than without it, but it writes both alike.
    if (old.contains("\xef\xbb\xbf"))
        return;
    const QJsonObject before = ObjectIn(old);
    const QJsonObject after = ObjectIn(written);
    for (auto member = before.begin(); member != before.end(); ++member) {
        if (!choice.Touches(member.key()))
            Require(AsDoubles(after.value(member.key())) == AsDoubles(member.value()),
                    "other keys keep their values", member.key());
    }
}

/// Writes the choice; returns the length of the new text, without the rest of the old one.
int Write(const Choice &choice)
{
    const bool isNew = !QFile::exists(Paths::UpdateConfigFile());
    const QByteArray old = isNew ? QByteArray() : ReadFile(Paths::UpdateConfigFile());
    Global::instance.latestVersion = choice.version;
    Require(Global::instance.WriteConfigToFile(choice.kind) == Global::Success,
            "a choice can be written");

    const QByteArray written = ReadFile(Paths::UpdateConfigFile());
    const QByteArray text = TextAfter(old, isNew, choice);
    Require(written == text + old.mid(text.size()),
            "the file has the new text, then the rest of a longer old one",
            QString::fromUtf8(written));
    if (Parses(written))
        RequireOthersKept(old, written, choice);
    return text.size();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    const Input input = InputOf(data, size);
    TheHome();
    // A new file each time: file systems flush a truncated file to the disk early, which is slow.
    QFile::remove(Paths::UpdateConfigFile());
    if (input.hasFile)
        WriteFile(Paths::UpdateConfigFile(), input.file);

    const CleanLog log;
    const int first = Write(input.choices[0]);
    const bool firstParses = Parses(ReadFile(Paths::UpdateConfigFile()));
    Require(firstParses || input.file.size() > first, "a file with only the new text can be read");
    const int second = Write(input.choices[1]);
    // The texts end with a line break, which may be all that is left of a longer one.
    if (firstParses && first - second <= 1)
        Require(Parses(ReadFile(Paths::UpdateConfigFile())),
                "a text at most one byte shorter can be read",
                QString::fromUtf8(ReadFile(Paths::UpdateConfigFile())));
    return 0;
}

// SPDX-License-Identifier: MIT
// The texts and numbers of an offer in the two dialogs. The input is a head of fixed size, the
// length of the notes, the notes, and a piece of the version. The piece is repeated, so that a
// small input makes a version of a million characters.

#include "config/global.h"
#include "config/paths.h"
#include "fuzz/support/inputreader.h"
#include "fuzz/support/promptwatch.h"
#include "fuzz/support/require.h"
#include "tests/support/testhome.h"
#include "ui/dwondialog.h"
#include "ui/updatedialog.h"

#include <QApplication>
#include <QCheckBox>
#include <QFile>
#include <QLabel>
#include <QPixmap>
#include <QPushButton>
#include <QString>

#include <array>
#include <cstddef>
#include <cstdint>

namespace
{

/// One second, doubled for the sanitizers.
constexpr double kLimitSeconds = 2;

/// A label is 400 pixels wide.
constexpr int kMaxLabelLength = 400;

constexpr int kMaxVersionLength = 1 << 20;

// Another target tests longer notes.
constexpr int kMaxNotesLength = 200;

/// The number of bytes that Load() takes before the texts.
constexpr int kHeadSize = 19;

int g_clientStarts = 0;

/// How the user is offered the update, and what is done with the prompt.
struct Input {
    QString mode;
    bool checksNeverPrompt;
    bool closesPrompt;
    qint64 bytesRead;
    qint64 totalBytes;
};

/// Puts the offer into the shared state.
Input Load(const uint8_t *data, size_t size)
{
    constexpr std::array<const char *, 8> modes{"1", "1", "1", "1", "0", "2", "", "10"};
    constexpr std::array<const char *, 4> languages{"en", "zh", "", "EN"};
    InputReader reader(data, size);
    const auto choices = reader.Take<quint8>();
    Input input{};
    input.mode = QLatin1String(modes.at(choices & 7));
    input.checksNeverPrompt = (choices & 8) != 0;
    input.closesPrompt = (choices & 16) != 0;
    // At most 1 TiB: a larger amount cannot have been received.
    input.bytesRead = reader.Take<quint32>() * 256LL;
    input.totalBytes = reader.Take<qint64>();

    ResetGlobal();
    Global &global = Global::instance;
    global.language = QLatin1String(languages.at(choices >> 5 & 3));
    global.update = input.mode;
    global.packageSize = reader.Take<qint32>();
    const int repetitions = 1 << (reader.Take<quint8>() % 21);
    const QString notes = QString::fromUtf8(reader.Bytes(reader.Take<quint8>()));
    global.latestVersionInfo = notes.left(kMaxNotesLength);
    const QString piece = QString::fromUtf8(reader.Rest());
    global.latestVersion = piece.repeated(repetitions).left(kMaxVersionLength);
    return input;
}

void RequireShortLabels(const QWidget &dialog)
{
    const auto labels = dialog.findChildren<QLabel *>();
    for (const QLabel *label : labels)
        Require(label->text().size() <= kMaxLabelLength, "a label has at most 400 characters",
                QString::number(label->text().size()));
}

/// Shows and paints both dialogs. They must not look at any file.
void Show(UpdateDialog &prompt, const Input &input)
{
    const OnlyFonts onlyFonts;
    prompt.updateMode(input.mode);
    prompt.grab();
    DwonDialog &progress = *prompt.ProgressDialog();
    progress.SetTexts();
    progress.show();
    progress.grab();
    progress.UpdateProgressBar(input.bytesRead, input.totalBytes);
    progress.grab();
}

/// Presses "Later", or closes the window, which has the same effect in an optional prompt.
void Decline(UpdateDialog &prompt, const Input &input)
{
    auto *later = prompt.findChild<QPushButton *>(QStringLiteral("laterBtn"));
    auto *neverPrompt = prompt.findChild<QCheckBox *>(QStringLiteral("checkRemid"));
    Require(later->isVisible() == (input.mode == QLatin1String("1")),
            "only an optional update can be postponed");
    neverPrompt->setChecked(input.checksNeverPrompt && neverPrompt->isVisible());
    const bool canDecline = later->isVisible();
    if (canDecline && !input.closesPrompt)
        later->click();
    else
        prompt.close();
    QCoreApplication::processEvents();
    Require(g_clientStarts == (canDecline ? 1 : 0), "\"Later\" starts the client once");
}

} // namespace

// The linker replaces Global::LaunchClient(), which waits for half a second and starts a program,
// with this function.
extern "C" int __wrap__ZN6Global12LaunchClientEv(Global *);
extern "C" int __wrap__ZN6Global12LaunchClientEv(Global *)
{
    ++g_clientStarts;
    return Global::Success;
}

// Outside the namespace, because the macro declares a function; not in the function with C linkage,
// because the declared function has C++ linkage.
static void InitResources()
{
    Q_INIT_RESOURCE(resources);
}

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    static TestHome home;
    static QApplication application(*argc, *argv);
    QApplication::setQuitOnLastWindowClosed(false);
    InitResources();
    // The first dialogs of a process load the fonts.
    UpdateDialog prompt;
    const QByteArray offer = QByteArray(kHeadSize, '\0') + QStringLiteral("1.\u4e2d").toUtf8();
    Show(prompt, Load(reinterpret_cast<const uint8_t *>(offer.constData()), size_t(offer.size())));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const Input input = Load(data, size);
    QFile::remove(Paths::UpdateConfigFile());
    g_clientStarts = 0;
    const CleanLog log;
    UpdateDialog prompt;

    const double start = CpuSeconds();
    Show(prompt, input);
    Decline(prompt, input);
    const double seconds = CpuSeconds() - start;
    Require(seconds < kLimitSeconds, "an offer is shown and declined within a second",
            QString::number(seconds));
    RequireShortLabels(prompt);
    RequireShortLabels(*prompt.ProgressDialog());
    return 0;
}

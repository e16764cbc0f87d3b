// SPDX-License-Identifier: MIT
#include "release/publish/rules/signature.h"

#include "install/zipdirectory.h"
#include "install/zipunpacker.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtEndian>

namespace
{

const QString kTool = QStringLiteral("osslsigncode");
constexpr int kToolLimitMs = 60000; // it may fetch lists of revoked certificates

const QLatin1String kMissing("signature-missing");
const QLatin1String kInvalid("signature-invalid");
const QLatin1String kOtherSigner("signature-signer");
const QLatin1String kNoTool("signature-tool");

// Microsoft's "PE Format": where the offset of the header stands, and how the header begins.
constexpr qint64 kHeaderOffsetPosition = 0x3C;
const QByteArray kDosMagic("MZ");
const QByteArray kPeMagic("PE\0\0", 4);

/// What osslsigncode said about one file.
struct Answer {
    bool isStarted = false;
    bool isInTime = false;
    bool isValid = false;
    QString text;
};

Answer Ask(const QString &path, const QString &authorities)
{
    QStringList arguments{QStringLiteral("verify"), QStringLiteral("-in"),
                          QDir::toNativeSeparators(path)};
    if (!authorities.isEmpty()) {
        const QString file = QDir::toNativeSeparators(authorities);
        arguments += {QStringLiteral("-CAfile"), file, QStringLiteral("-TSA-CAfile"), file};
    }
    QProcess tool;
    tool.setProcessChannelMode(QProcess::MergedChannels);
    tool.start(kTool, arguments);
    Answer answer;
    answer.isStarted = tool.waitForStarted();
    if (!answer.isStarted)
        return answer;
    answer.isInTime = tool.waitForFinished(kToolLimitMs);
    if (!answer.isInTime) {
        tool.kill();
        tool.waitForFinished();
        return answer;
    }
    answer.isValid = tool.exitStatus() == QProcess::NormalExit && tool.exitCode() == 0;
    answer.text = QString::fromUtf8(tool.readAll());
    return answer;
}

/// A reason in our words for what osslsigncode says, and how to remove it.
struct Reason {
    const char *said; ///< a regular expression
    QLatin1String rule;
    const char *meaning;
    const char *advice;
};

const QVector<Reason> &Reasons()
{
    static const QVector<Reason> reasons{
        {"No signature found", kMissing, "is not signed", "sign it"},
        {"Calculated message digest .*MISMATCH", kInvalid, "was changed after it was signed",
         "sign it again"},
        {"certificate has expired", kInvalid,
         "is signed with a certificate that has expired, and has no time stamp from before",
         "sign it again, with a time stamp"},
        {"certificate is not yet valid", kInvalid,
         "is signed with a certificate that is not valid yet", "check this machine's clock"},
        {"certificate revoked", kInvalid, "is signed with a certificate that was revoked",
         "sign it with another certificate"},
        {"unable to get local issuer certificate", kInvalid,
         "is signed with a certificate from an authority that is not trusted here",
         "name the authority with --authorities"},
        {"self.signed certificate", kInvalid,
         "is signed with a certificate from an authority that is not trusted here",
         "name the authority with --authorities"},
    };
    return reasons;
}

Finding WhyInvalid(const QString &path, const QString &shown, const QString &said)
{
    for (const Reason &reason : Reasons()) {
        if (said.contains(QRegularExpression(QString::fromLatin1(reason.said)))) {
            return {reason.rule, path,
                    QStringLiteral("%1 %2; %3")
                        .arg(shown, QLatin1String(reason.meaning), QLatin1String(reason.advice))};
        }
    }
    return {
        kInvalid, path,
        QStringLiteral("%1 has no valid signature; \"osslsigncode verify\" says why").arg(shown)};
}

/// Checks files one after the other, until the tool itself fails.
class Checker
{
public:
    explicit Checker(const SignatureDemand &demand) : m_demand(demand) {}

    /// @p path is the file's in the package, or empty; @p shown what messages call it.
    void Check(const QString &file, const QString &path, const QString &shown)
    {
        if (m_isOver)
            return;
        const Answer answer = Ask(file, m_demand.authorities);
        if (!answer.isStarted) {
            End({kNoTool, QString(),
                 QStringLiteral("signatures cannot be checked, because osslsigncode cannot be "
                                "started; install it, on Debian with \"apt-get install "
                                "osslsigncode\"")});
        } else if (!answer.isInTime) {
            End({kNoTool, path,
                 QStringLiteral("osslsigncode has not checked %1 within %2 seconds; try again when "
                                "the network works")
                     .arg(shown)
                     .arg(kToolLimitMs / 1000)});
        } else if (!answer.isValid) {
            m_findings.append(WhyInvalid(path, shown, answer.text));
        } else {
            CheckSigner(answer.text, path, shown);
        }
    }

    /// Keeps further files from being checked.
    void End(const Finding &finding)
    {
        m_findings.append(finding);
        m_isOver = true;
    }

    bool IsOver() const { return m_isOver; }
    Findings Found() const { return m_findings; }

private:
    void CheckSigner(const QString &said, const QString &path, const QString &shown)
    {
        if (m_demand.signer.isEmpty())
            return;
        const QStringList signers = Signature::SignersIn(said);
        if (!signers.isEmpty() && signers.count(m_demand.signer) == signers.size())
            return;
        const QString names = signers.join(QStringLiteral("\" and \""));
        m_findings.append(
            {kOtherSigner, path,
             QStringLiteral("%1 is signed by \"%2\" instead of \"%3\"; sign it, or "
                            "correct --signer")
                 .arg(shown, ReleaseRules::Shown(names), ReleaseRules::Shown(m_demand.signer))});
    }

    const SignatureDemand &m_demand;
    Findings m_findings;
    bool m_isOver = false;
};

/// Unpacks @p entry to @p target when it begins like a program; otherwise, and when it is damaged,
/// that is left empty. False when @p target cannot be written.
bool UnpackProgram(ZipUnpacker &unpacker, const ZipEntry &entry, QFile &target)
{
    if (!target.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    bool isFirst = true;
    bool isCandidate = false;
    bool isWritten = true;
    const auto write = [&](const char *data, qint64 size) {
        if (isFirst)
            isCandidate = QByteArray::fromRawData(data, int(size)).startsWith(kDosMagic);
        isFirst = false;
        if (isCandidate)
            isWritten = isWritten && target.write(data, size) == size;
    };
    // The check of the archive refuses what is damaged.
    const bool isSound = unpacker.Find(entry) && unpacker.Unpack(write);
    isWritten = target.flush() && isWritten;
    if (!isSound)
        target.resize(0);
    target.close();
    return isWritten;
}

/// "\xE5" of a certificate's name as the byte that it stands for.
QString WithoutEscapes(const QString &name)
{
    static const QRegularExpression escape(QStringLiteral("\\\\x([0-9A-Fa-f]{2})"));
    const QByteArray text = name.toUtf8();
    QByteArray plain;
    int from = 0;
    auto escapes = escape.globalMatch(QString::fromLatin1(text));
    while (escapes.hasNext()) {
        const QRegularExpressionMatch match = escapes.next();
        plain += text.mid(from, match.capturedStart() - from);
        plain += char(match.captured(1).toInt(nullptr, 16));
        from = match.capturedEnd();
    }
    return QString::fromUtf8(plain + text.mid(from));
}

/// The common name in "/C=CN/O=Norvane/CN=Norvane Ltd"; empty when there is none, or when another
/// part of the name could be taken for one.
QString CommonName(const QString &subject)
{
    const QString key = QStringLiteral("/CN=");
    if (subject.count(key) != 1)
        return QString();
    static const QRegularExpression nextPart(QStringLiteral("/[A-Za-z0-9.]+="));
    const QString rest = subject.mid(subject.indexOf(key) + key.size());
    return WithoutEscapes(rest.left(rest.indexOf(nextPart)));
}

} // namespace

bool Signature::IsProgram(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly) || file.read(kDosMagic.size()) != kDosMagic ||
        !file.seek(kHeaderOffsetPosition))
        return false;
    const QByteArray offset = file.read(sizeof(quint32));
    return offset.size() == sizeof(quint32) &&
           file.seek(qFromLittleEndian<quint32>(offset.constData())) &&
           file.read(kPeMagic.size()) == kPeMagic;
}

Findings Signature::CheckInstaller(const QString &path, const SignatureDemand &demand)
{
    Checker checker(demand);
    if (demand.isRequired)
        checker.Check(path, QString(), path);
    return checker.Found();
}

Findings Signature::CheckFolder(const QString &folder, const QVector<ReleaseRules::Entry> &entries,
                                const SignatureDemand &demand, Progress &progress)
{
    Checker checker(demand);
    if (!demand.isRequired)
        return {};
    qint64 total = 0;
    for (const ReleaseRules::Entry &entry : entries)
        total += entry.size;
    progress.Begin(QStringLiteral("signatures"), total);
    for (const ReleaseRules::Entry &entry : entries) {
        const QString file = QDir(folder).filePath(entry.path);
        if (!entry.isFolder && IsProgram(file))
            checker.Check(file, entry.path, entry.path);
        if (!checker.IsOver() && !progress.Advance(entry.size))
            checker.End(Interrupted());
        if (checker.IsOver())
            break;
    }
    return checker.Found();
}

Findings Signature::CheckZip(const QString &path, const SignatureDemand &demand, Progress &progress)
{
    Checker checker(demand);
    QFile archive(path);
    if (!demand.isRequired || !archive.open(QIODevice::ReadOnly))
        return {};
    const QVector<ZipEntry> directory = ReadZipDirectory(archive);
    qint64 total = 0;
    for (const ZipEntry &entry : directory)
        total += entry.packedSize;
    progress.Begin(QStringLiteral("signatures"), total);

    const QTemporaryDir folder;
    QFile unpacked(folder.filePath(QStringLiteral("program")));
    ZipUnpacker unpacker(archive);
    for (const ZipEntry &entry : directory) {
        if (!UnpackProgram(unpacker, entry, unpacked)) {
            checker.End({QStringLiteral("unwritable"), QString(),
                         QStringLiteral("%1 cannot be written; free some disk space and check the "
                                        "permissions")
                             .arg(unpacked.fileName())});
        } else if (IsProgram(unpacked.fileName())) {
            const QString name = QString::fromUtf8(entry.rawName).section(QLatin1Char('/'), 1);
            checker.Check(unpacked.fileName(), name, name);
        }
        if (!checker.IsOver() && !progress.Advance(entry.packedSize))
            checker.End(Interrupted());
        if (checker.IsOver())
            break;
    }
    return checker.Found();
}

QStringList Signature::SignersIn(const QString &output)
{
    static const QRegularExpression signer(
        QStringLiteral("^Signer's certificate:\\s*$.*?^\\s*Subject\\s*: (.*?)\\s*$"),
        QRegularExpression::MultilineOption | QRegularExpression::DotMatchesEverythingOption);
    QStringList names;
    auto matches = signer.globalMatch(output);
    while (matches.hasNext())
        names.append(CommonName(matches.next().captured(1)));
    return names;
}

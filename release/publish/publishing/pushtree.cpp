// SPDX-License-Identifier: MIT
#include "release/publish/publishing/pushtree.h"

#include "release/publish/base/hostsystem.h"
#include "release/publish/rules/releaserules.h"
#include "release/publish/tree/releasetree.h"
#include "release/publish/tree/treechange.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QProcess>
#include <QRegularExpression>

namespace
{

const QString kRsync = QStringLiteral("rsync");

/// The web server must be able to read the files whatever the node's umask is, links are copied as
/// links, and times are copied because the ETag of a package depends on them. Times of folders are
/// not, because folders may belong to another user.
const QStringList kCopy{QStringLiteral("-rlptO"), QStringLiteral("--chmod=D755,F644"),
                        QStringLiteral("--mkpath")};

const QString kCheck = QStringLiteral("/check/");
const QString kPackages = QStringLiteral("/packages/");
const QString kNothingElse = QStringLiteral("--exclude=*");
const QString kStop = QStringLiteral("stop");
const QString kIncludeStop = QStringLiteral("--include=/") + kStop;

/// How rsync reports a removed file: this text, blanks and the name.
const QString kRemoved = QStringLiteral("*deleting");

/// What to copy from a folder of the tree to the same folder of a node.
struct Step {
    QString folder; ///< with a slash at both ends
    QStringList options;
};

/// Copied first of all, to every node that can be reached.
Step StopStep()
{
    return {kCheck, {kIncludeStop, kNothingElse}};
}

/// Each step is done for all nodes before the next one begins. The links at the top level of the
/// tree are copied before the last step.
QVector<Step> Steps()
{
    const QString generations = QStringLiteral("--include=/generations");
    const QString inGenerations = QStringLiteral("--include=/generations/**");
    return {
        {kPackages, {QStringLiteral("--ignore-existing")}},
        {kCheck,
         {QStringLiteral("--include=/none.json"), QStringLiteral("--include=/answers"),
          QStringLiteral("--include=/answers/**"), kNothingElse}},
        {kCheck, {generations, inGenerations, kNothingElse}},
        {kCheck, {QStringLiteral("--include=/now"), kNothingElse}},
        // Removing old generations and a lifted stop comes last.
        {kCheck,
         {QStringLiteral("--delete"), QStringLiteral("--out-format=%i %n"), kIncludeStop,
          generations, inGenerations, kNothingElse}},
    };
}

/// Why @p node is not valid, as the end of a sentence; empty when it is valid.
QString NodeObjection(const QString &node)
{
    const QString host = node.section(QLatin1Char('/'), 0, 0);
    const int colons = host.count(QLatin1Char(':'));
    const bool isModule = colons == 2 && host.contains(QLatin1String("::"));
    if (colons > 1 && !isModule && !host.contains(QLatin1Char('['))) {
        return QStringLiteral("has several colons before its folder; write an IPv6 address in "
                              "brackets, such as [2001:db8::1]:/srv/updates");
    }
    // For rsync, "host:" is the home folder, and a name alone is a folder of this machine.
    const bool isHostOnly = host.contains(QLatin1Char('[')) && !host.contains(QLatin1String("]:"));
    if (node.startsWith(QLatin1Char(':')) || node.endsWith(QLatin1Char(':')) || isHostOnly ||
        (colons == 0 && host == node)) {
        return QStringLiteral(
            "names no folder; write HOST:DIR, or ./DIR for a folder on this machine");
    }
    return QString();
}

/// Quoted for a shell, if necessary.
QString Quoted(QString argument)
{
    static const QRegularExpression plain(QStringLiteral("\\A[A-Za-z0-9_@%+=:,./-]+\\z"));
    if (plain.match(argument).hasMatch())
        return argument;
    return QLatin1Char('\'') + argument.replace(QLatin1Char('\''), QLatin1String("'\\''")) +
           QLatin1Char('\'');
}

/// The messages of rsync and ssh, without the lines that follow every failure.
QString Reason(const QByteArray &errors)
{
    QStringList reasons;
    for (const QString &line :
         QString::fromLocal8Bit(errors).split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        if (!line.startsWith(QLatin1String("rsync error:")) &&
            !line.startsWith(QLatin1String("rsync: connection unexpectedly closed")))
            reasons.append(ReleaseRules::Shown(line.trimmed()));
    }
    return reasons.join(QStringLiteral(", "));
}

/// Copies a tree to its nodes.
class Push
{
public:
    explicit Push(const Request &request) : m_request(request), m_tree(request.source) {}

    Outcome Run()
    {
        if (!QFileInfo(m_tree.ListFile()).isFile()) {
            Refuse("missing",
                   QStringLiteral("%1 is not a release tree; check the path").arg(m_tree.Folder()));
            return m_outcome;
        }
        for (const QString &node : m_request.nodes) {
            const QString objection =
                LiesInTree(node) ? QStringLiteral("is in the tree; name a folder outside it")
                                 : NodeObjection(node);
            if (!objection.isEmpty())
                Refuse("node", QStringLiteral("\"%1\" %2").arg(node, objection));
        }
        // The link would replace a file of the node, and a dangling link stops nothing.
        if (HostSystem::IsLink(m_tree.StopFile())) {
            Refuse(
                "stop-link",
                QStringLiteral("%1 is a link, which may not work on a node and would then stop "
                               "nothing; replace it with a file to stop all offers, or remove it")
                    .arg(m_tree.StopFile()));
        }
        if (!m_outcome.refusals.isEmpty())
            return m_outcome;
        // No other process may change the tree meanwhile.
        TreeChange lock(m_tree);
        if (const Failure failure = m_request.dryRun ? m_tree.Read(lock.List()) : lock.Begin()) {
            m_outcome.refusals.append(*failure);
            return m_outcome;
        }
        if (IsStopped() ? CopyStop() : CheckOffered(lock.List()))
            CopyTheRest();
        if (m_outcome.refusals.isEmpty())
            DescribeResult();
        return m_outcome;
    }

private:
    void DescribeResult()
    {
        m_outcome.summary += QStringLiteral("%1: %2 on %3 %4\n")
                                 .arg(m_tree.Folder(), m_request.dryRun ? QStringLiteral("would be")
                                                                        : QStringLiteral("is"))
                                 .arg(m_request.nodes.size())
                                 .arg(m_request.nodes.size() == 1 ? QStringLiteral("node")
                                                                  : QStringLiteral("nodes"));
        m_outcome.facts = {{QStringLiteral("nodes"), QJsonArray::fromStringList(m_request.nodes)},
                           {QStringLiteral("dryRun"), m_request.dryRun}};
        if (m_request.dryRun)
            m_outcome.facts.insert(QStringLiteral("commands"), m_commands);
    }

    bool IsStopped() const { return QFileInfo::exists(m_tree.StopFile()); }

    /// A node that fails must not keep the others from stopping.
    bool CopyStop()
    {
        for (const QString &node : m_request.nodes)
            Copy(StopStep(), node);
        return m_outcome.refusals.isEmpty();
    }

    /// A node must not offer packages that are missing here.
    bool CheckOffered(const ReleaseList &list)
    {
        for (const Release &release : list.releases) {
            const QFileInfo package(m_tree.PackageFile(release.id));
            if (!release.IsOffered() || (package.isFile() && package.size() == release.size))
                continue;
            Refuse("package",
                   QStringLiteral("%1, which is offered, %2; restore the package, or stop %3")
                       .arg(package.filePath(),
                            package.exists()
                                ? QStringLiteral("does not have the size of its release")
                                : QStringLiteral("is missing"),
                            release.version));
        }
        return m_outcome.refusals.isEmpty();
    }

    void CopyTheRest()
    {
        for (const QString &node : m_request.nodes) {
            if (!CheckPackages(node))
                return;
        }
        const QVector<Step> steps = Steps();
        for (int i = 0; i < steps.size(); ++i) {
            const bool isLast = i == steps.size() - 1;
            for (const QString &node : m_request.nodes) {
                if ((isLast && !CopyTopLinks(node)) || !Copy(steps.at(i), node))
                    return;
            }
        }
    }

    void Refuse(const char *rule, const QString &message)
    {
        m_outcome.refusals.append({QString::fromLatin1(rule), QString(), message});
    }

    bool LiesInTree(const QString &node) const
    {
        // A remote node is not a path of this machine and does not match.
        const QString folder =
            QDir::cleanPath(QDir::current().absoluteFilePath(node)) + QLatin1Char('/');
        return folder.startsWith(m_tree.Folder() + QLatin1Char('/'));
    }

    static QString TargetOf(const QString &node, const QString &folder)
    {
        return (node.endsWith(QLatin1Char('/')) ? node.chopped(1) : node) + folder;
    }

    /// The packages that the node already has must be identical.
    bool CheckPackages(const QString &node)
    {
        QString listed;
        if (!Rsync({QStringLiteral("-rcn"), QStringLiteral("--existing"),
                    QStringLiteral("--out-format=%n"), m_tree.Folder() + kPackages,
                    TargetOf(node, kPackages)},
                   node, &listed))
            return false;
        for (const QString &name : listed.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
            if (!name.endsWith(QLatin1Char('/'))) {
                Refuse("package-exists",
                       QStringLiteral("%1 has %2 with different content, and caches may contain "
                                      "it; publish your package under another version")
                           .arg(node, name));
            }
        }
        return m_outcome.refusals.isEmpty();
    }

    bool Copy(const Step &step, const QString &node)
    {
        QString listed;
        if (!RsyncUnlessDry(
                kCopy + step.options +
                    QStringList{m_tree.Folder() + step.folder, TargetOf(node, step.folder)},
                node, listed))
            return false;
        for (const QString &line : listed.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
            if (line.startsWith(kRemoved) && line.mid(kRemoved.size()).trimmed() == kStop) {
                m_outcome.summary += QStringLiteral("%1: check/stop is removed, as in %2\n")
                                         .arg(node, m_tree.Folder());
            }
        }
        return true;
    }

    /// Copied one by one, because their folder on the node may belong to another user.
    bool CopyTopLinks(const QString &node)
    {
        QStringList arguments{QStringLiteral("-lt")};
        for (const char *name : {"/index.html", "/SHA256SUMS"}) {
            const QString path = m_tree.Folder() + QLatin1String(name);
            if (QFileInfo(path).isSymLink())
                arguments.append(path);
        }
        QString listed;
        return arguments.size() == 1 ||
               RsyncUnlessDry(arguments + QStringList(TargetOf(node, QStringLiteral("/"))), node,
                              listed);
    }

    bool RsyncUnlessDry(const QStringList &arguments, const QString &node, QString &output)
    {
        if (!m_request.dryRun)
            return Rsync(arguments, node, &output);
        m_commands.append(QJsonArray::fromStringList(QStringList{kRsync} + arguments));
        m_outcome.summary += kRsync;
        for (const QString &argument : arguments)
            m_outcome.summary += QLatin1Char(' ') + Quoted(argument);
        m_outcome.summary += QLatin1Char('\n');
        return true;
    }

    bool Rsync(const QStringList &arguments, const QString &node, QString *output)
    {
        QProcess rsync;
        rsync.start(kRsync, arguments);
        if (!rsync.waitForStarted()) {
            Refuse("rsync",
                   QStringLiteral("rsync cannot be started; install rsync 3.2.3 or newer"));
            return false;
        }
        rsync.closeWriteChannel();
        rsync.waitForFinished(-1);
        if (rsync.exitStatus() != QProcess::NormalExit || rsync.exitCode() != 0) {
            Refuse("rsync", QStringLiteral("%1: rsync failed with exit code %2 (%3); fix the cause "
                                           "and run the command again")
                                .arg(node, QString::number(rsync.exitCode()),
                                     Reason(rsync.readAllStandardError())));
            return false;
        }
        if (output != nullptr)
            *output = QString::fromLocal8Bit(rsync.readAllStandardOutput());
        return true;
    }

    const Request &m_request;
    ReleaseTree m_tree;
    QJsonArray m_commands; ///< what would be started, for a dry run
    Outcome m_outcome;
};

} // namespace

Outcome PushTree(const Request &request)
{
    return Push(request).Run();
}

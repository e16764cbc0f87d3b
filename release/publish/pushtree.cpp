#include "release/publish/pushtree.h"

#include "release/publish/releasetree.h"
#include "release/publish/treechange.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QProcess>

namespace
{

const QString kRsync = QStringLiteral("rsync");

/// Files readable for the web server, links as they are, times for the ETag of a package.
const QStringList kCopy{QStringLiteral("-rlt"), QStringLiteral("--chmod=D755,F644"),
                        QStringLiteral("--mkpath")};

/// One step, for every node before the next step begins.
struct Step {
    const char *name;
    QString folder; ///< in the tree, with a slash at both ends
    QStringList options;
};

QVector<Step> Steps()
{
    const QString check = QStringLiteral("/check/");
    const QString all = QStringLiteral("--exclude=*");
    return {
        // A stop is the first to arrive, and a lifted one the last.
        {"stop", check, {QStringLiteral("--include=/stop"), all}},
        {"packages", QStringLiteral("/packages/"), {QStringLiteral("--ignore-existing")}},
        {"answers",
         check,
         {QStringLiteral("--include=/none.json"), QStringLiteral("--include=/answers"),
          QStringLiteral("--include=/answers/**"), all}},
        {"generation",
         check,
         {QStringLiteral("--include=/generations"), QStringLiteral("--include=/generations/**"),
          all}},
        {"decisions", check, {QStringLiteral("--include=/now"), all}},
        {"pages",
         QStringLiteral("/"),
         {QStringLiteral("--include=/index.html"), QStringLiteral("--include=/SHA256SUMS"), all}},
        {"rest",
         check,
         {QStringLiteral("--delete"), QStringLiteral("--include=/stop"),
          QStringLiteral("--include=/generations"), QStringLiteral("--include=/generations/**"),
          all}},
    };
}

/// A tree on its way to its nodes.
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
            if (LiesInTree(node)) {
                Refuse("node", QStringLiteral("%1 lies in %2; name a folder outside of the tree")
                                   .arg(node, m_tree.Folder()));
                return m_outcome;
            }
        }
        // Nobody changes the tree meanwhile.
        TreeChange lock(m_tree);
        if (const Failure failure = m_request.dryRun ? m_tree.Read(lock.List()) : lock.Begin()) {
            m_outcome.refusals.append(*failure);
            return m_outcome;
        }
        for (const QString &node : m_request.nodes) {
            if (!CheckPackages(node))
                return m_outcome;
        }
        for (const Step &step : Steps()) {
            for (const QString &node : m_request.nodes) {
                if (!Copy(step, node))
                    return m_outcome;
            }
        }
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
        return m_outcome;
    }

private:
    void Refuse(const char *rule, const QString &message)
    {
        m_outcome.refusals.append({QString::fromLatin1(rule), QString(), message});
    }

    bool LiesInTree(const QString &node) const
    {
        // A remote node is no path of this machine, and is not found.
        const QString folder =
            QDir::cleanPath(QDir::current().absoluteFilePath(node)) + QLatin1Char('/');
        return folder.startsWith(m_tree.Folder() + QLatin1Char('/'));
    }

    static QString TargetOf(const QString &node, const QString &folder)
    {
        return (node.endsWith(QLatin1Char('/')) ? node.chopped(1) : node) + folder;
    }

    /// The packages that the node has already must be the same.
    bool CheckPackages(const QString &node)
    {
        QString listed;
        const QString folder = QStringLiteral("/packages/");
        if (!Rsync({QStringLiteral("-rcn"), QStringLiteral("--existing"),
                    QStringLiteral("--out-format=%n"), m_tree.Folder() + folder,
                    TargetOf(node, folder)},
                   node, &listed))
            return false;
        for (const QString &name : listed.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
            if (!name.endsWith(QLatin1Char('/'))) {
                Refuse("package-exists",
                       QStringLiteral("%1 has %2 with other bytes, and caches may hold it; publish "
                                      "it under another version")
                           .arg(node, name));
            }
        }
        return m_outcome.refusals.isEmpty();
    }

    bool Copy(const Step &step, const QString &node)
    {
        const QString from = m_tree.Folder() + step.folder;
        const QStringList arguments =
            kCopy + step.options + QStringList{from, TargetOf(node, step.folder)};
        if (m_request.dryRun) {
            m_commands.append(QJsonArray::fromStringList(QStringList{kRsync} + arguments));
            m_outcome.summary +=
                kRsync + QLatin1Char(' ') + arguments.join(QLatin1Char(' ')) + QLatin1Char('\n');
            return true;
        }
        return Rsync(arguments, node, nullptr);
    }

    bool Rsync(const QStringList &arguments, const QString &node, QString *output)
    {
        QProcess rsync;
        rsync.start(kRsync, arguments);
        if (!rsync.waitForStarted()) {
            Refuse("rsync", QStringLiteral("rsync cannot be started; install it"));
            return false;
        }
        rsync.closeWriteChannel();
        rsync.waitForFinished(-1);
        if (rsync.exitStatus() != QProcess::NormalExit || rsync.exitCode() != 0) {
            const QString errors = QString::fromLocal8Bit(rsync.readAllStandardError());
            Refuse("rsync",
                   QStringLiteral("%1: rsync ended with %2 (%3); run it again when the node "
                                  "can be reached")
                       .arg(node)
                       .arg(rsync.exitCode())
                       .arg(errors.section(QLatin1Char('\n'), 0, 0)));
            return false;
        }
        if (output != nullptr)
            *output = QString::fromLocal8Bit(rsync.readAllStandardOutput());
        return true;
    }

    const Request &m_request;
    ReleaseTree m_tree;
    QJsonArray m_commands; ///< what a dry run would start, each with its arguments
    Outcome m_outcome;
};

} // namespace

Outcome PushTree(const Request &request)
{
    return Push(request).Run();
}

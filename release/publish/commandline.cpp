#include "release/publish/commandline.h"

#include "release/publish/exclusion.h"
#include "release/publish/networkprefix.h"
#include "release/publish/releaselist.h"

#include <QCommandLineParser>
#include <QRegularExpression>
#include <QVector>

#include <algorithm>

namespace
{

enum Need { Required, Optional, Repeatable, Flag };

struct Option {
    const char *name;
    const char *value; ///< as the help shows it; null for a flag
    Need need;
    const char *help;
};

constexpr int kMany = 10000;

struct CommandDescription {
    Request::Command command;
    const char *name;
    const char *operand; ///< what follows the options; null when nothing does
    int leastOperands;
    int mostOperands;
    const char *help;
    const char *example;
    QVector<Option> options;
};

const Option kVersion{"version", "VERSION", Required, "the version that is offered, as in 2.1.3"};
const Option kUpdate{"update", "optional|forced", Required, "may the user postpone it?"};
const Option kNotesZh{"notes-zh", "FILE", Required,
                      "release notes in Chinese, UTF-8; plain or HTML"};
const Option kNotesEn{"notes-en", "FILE", Required, "release notes in English"};
const Option kOut{"out", "DIR", Required, "the release tree; made when it is not there"};
const Option kUrlPrefix{
    "url-prefix", "URL", Optional,
    "what precedes /packages/ in the announced address; with /packages is right too"};
const Option kUpdaterFolder{
    "updater-folder", "NAME", Optional,
    "the updater's folder in the client's, which a package must not hold (default: AutoUpdate)"};
const Option kExclude{"exclude", "PATTERN", Repeatable,
                      "leaves out what is called so, as in *.pdb or doc/*.txt; may be given often"};
const Option kNoDefaultExcludes{
    "no-default-excludes", nullptr, Flag,
    "packs what is left out otherwise: .git, .svn, .hg, .DS_Store, Thumbs.db, desktop.ini, ..."};
const Option kAllowUpdater{"allow-updater", nullptr, Flag,
                           "take a package that holds the updater's folder nevertheless"};
const Option kAllowShorterVersion{
    "allow-shorter-version", nullptr, Flag,
    "publish even though clients may never start again after this version"};
const Option kConfigFile{"config-file", "PATH", Optional,
                         "the client's version file in DIR: it must tell the same version"};
const Option kKnown{"known", "FILE", Optional,
                    "SHA256SUMS of earlier trees: no package is published with other bytes again"};
const Option kShareAtOnce{"share", "PERCENT", Optional,
                          "roll it out at once to this share of all clients (default: to none)"};
const Option kRelease{"version", "VERSION", Required, "the release, by its version"};
const Option kReleaseOrAll{"version", "VERSION", Optional,
                           "only this release (default: whatever is rolled out)"};
const Option kShare{"share", "PERCENT", Optional,
                    "from 0.1 to 100, in steps of 0.1 (default: as it is)"};
const Option kFrom{"from", "PATTERN", Repeatable,
                   "only clients with such a version, as in 2.0.*; * lifts the restriction"};
const Option kNetwork{"network", "CIDR", Repeatable,
                      "also everybody in this network, whatever the share, as in 192.0.2.0/24"};
const Option kPlan{"plan", "STEPS", Optional,
                   "shares that \"publish advance\" raises: \"1% 1d, 10% 1d, 50% 1d, 100%\""};
const Option kLinkGbit{"link-gbit", "GBIT", Optional,
                       "warn when downloads would need more than this line; with --clients"};
const Option kClients{"clients", "NUMBER", Optional, "how many clients there are"};
const Option kLog{"log", "LOG", Repeatable, "an access log of a node, as it is or gzipped"};
const Option kProduct{"product", "NAME", Optional,
                      "the tree's product in the logs (default: the one without a name)"};
const Option kStopAbove{"stop-above", "KIND=PERCENT", Repeatable,
                        "interrupted=2: more interrupted downloads than before, in percentage "
                        "points; unchanged=5: of those that completed it, came back without it"};
const Option kHtml{"html", "FILE", Optional, "a page with charts as well"};
const Option kClientFolder{"client", "DIR", Optional, "the client's folder as it ships"};
const Option kInstallers{"installer", nullptr, Flag,
                         "packages are installers (default: zip archives)"};
const Option kDowngrade{"downgrade", nullptr, Flag,
                        "offer the previous release to clients that have this one"};
const Option kDryRun{"dry-run", nullptr, Flag, "tell what would be done, and write nothing"};
const Option kJson{"json", nullptr, Flag, "the result as JSON on the standard output"};

const QVector<CommandDescription> &Commands()
{
    static const QVector<CommandDescription> commands{
        {Request::Zip,
         "zip",
         nullptr,
         0,
         0,
         "packs a client's folder, and publishes the package",
         "publish zip --client build/Client --name Client --version 2.1.3 --update optional \\\n"
         "      --notes-zh notes-zh.txt --notes-en notes-en.txt --out site",
         {{"client", "DIR", Required, "the new client: its contents go over the installed one"},
          {"name", "NAME", Required, "the package is called NAME-VERSION.zip"},
          kVersion,
          kUpdate,
          kNotesZh,
          kNotesEn,
          kOut,
          kUrlPrefix,
          kShareAtOnce,
          kConfigFile,
          kKnown,
          kExclude,
          kNoDefaultExcludes,
          kUpdaterFolder,
          kAllowUpdater,
          kAllowShorterVersion,
          kDryRun,
          kJson}},
        {Request::Installer,
         "installer",
         nullptr,
         0,
         0,
         "publishes an installer, which the updater starts",
         "publish installer --file NorvaneSetup-2.1.3.exe --version 2.1.3 --update forced \\\n"
         "      --notes-zh notes-zh.txt --notes-en notes-en.txt --out site",
         {{"file", "FILE", Required, "the installer, a program"},
          {"name", "NAME", Optional, "publish it as NAME-VERSION.exe (default: as it is called)"},
          kVersion,
          kUpdate,
          kNotesZh,
          kNotesEn,
          kOut,
          kUrlPrefix,
          kShareAtOnce,
          kKnown,
          kAllowShorterVersion,
          kDryRun,
          kJson}},
        {Request::Promote,
         "promote",
         "FROM TO",
         2,
         2,
         "publishes a release of a tree in another one, with the identical package",
         "publish promote client-beta client --version 2.1.3",
         {kRelease, kKnown, kAllowShorterVersion, kDryRun, kJson}},
        {Request::Verify,
         "verify",
         "DIR",
         1,
         1,
         "checks every release of a tree, and what it offers, against every rule; writes nothing",
         "publish verify site",
         {kUpdaterFolder, kAllowUpdater, kJson}},
        {Request::Rollout,
         "rollout",
         "DIR",
         1,
         1,
         "offers a published release to a share of the clients",
         "publish rollout site --version 2.1.3 --share 10",
         {kRelease, kShare, kPlan, kFrom, kNetwork, kLinkGbit, kClients, kDryRun, kJson}},
        {Request::Advance,
         "advance",
         "DIR",
         1,
         kMany,
         "performs the next step of a plan, or stops the release when too much goes wrong",
         "publish advance site --log /var/log/nginx/updates.log",
         {kLog, kProduct, kStopAbove, kDryRun, kJson}},
        {Request::Stop,
         "stop",
         "DIR",
         1,
         1,
         "offers nothing any more, or a release no more",
         "publish stop site --version 2.1.3",
         {kReleaseOrAll, kDryRun, kJson}},
        {Request::Resume,
         "resume",
         "DIR",
         1,
         1,
         "takes a stop back; each release keeps its share",
         "publish resume site --version 2.1.3",
         {kReleaseOrAll, kDryRun, kJson}},
        {Request::Rollback,
         "rollback",
         "DIR",
         1,
         1,
         "withdraws a release for good",
         "publish rollback site --version 2.1.3 --downgrade",
         {kRelease, kDowngrade, kAllowShorterVersion, kDryRun, kJson}},
        {Request::List,
         "list",
         "DIR",
         1,
         1,
         "lists the releases of a tree and whom they are offered to",
         "publish list site",
         {kJson}},
        {Request::Push,
         "push",
         "DIR NODE...",
         2,
         kMany,
         "copies a tree to the nodes that serve it: packages first, decisions last",
         "publish push site updates@node1:/srv/updates updates@node2:/srv/updates",
         {kDryRun, kJson}},
        {Request::ReportOnLogs,
         "report",
         "LOG...",
         1,
         kMany,
         "tells from the access logs of all nodes how releases are doing",
         "publish report updates.log updates.log.1 --html report.html",
         {kHtml, kJson}},
        {Request::CheckConfiguration,
         "check-config",
         "FILE",
         1,
         1,
         "checks the updateconfig.json that ships with a client",
         "publish check-config updateconfig.json --client client",
         {kClientFolder, kInstallers, kJson}},
    };
    return commands;
}

QString Text(const char *text)
{
    return QString::fromLatin1(text);
}

QString OptionText(const Option &option)
{
    QString text = QStringLiteral("--") + Text(option.name);
    if (option.value != nullptr)
        text += QLatin1Char(' ') + Text(option.value);
    return text;
}

QString GeneralHelp()
{
    QString help = QStringLiteral("publish makes releases for the updater, and proves them.\n\n");
    for (const CommandDescription &command : Commands()) {
        help += QStringLiteral("publish %1: %2\n  %3\n\n")
                    .arg(Text(command.name), Text(command.help), Text(command.example));
    }
    return help + QStringLiteral("publish COMMAND --help tells its options, "
                                 "publish --version the version of the tool.\n"
                                 "Exit codes: 0 done, 1 refused (nothing was published), 2 wrong "
                                 "command line.\n");
}

QString CommandHelp(const CommandDescription &command)
{
    QString help =
        QStringLiteral("publish %1 %2: %3\n\nOptions:\n")
            .arg(Text(command.name),
                 command.operand != nullptr ? Text(command.operand) : QStringLiteral("OPTIONS"),
                 Text(command.help));
    for (const Option &option : command.options) {
        help += QStringLiteral("  %1 %2%3\n")
                    .arg(OptionText(option), -26)
                    .arg(Text(option.help),
                         option.need == Required ? QStringLiteral(" (required)") : QString());
    }
    return help +
           QStringLiteral("\nExample:\n  %1\n\nExit codes: 0 done, 1 refused (a line a reason "
                          "on the standard error stream), 2 wrong command line.\n")
               .arg(Text(command.example));
}

CommandLine Wrong(const QString &what, const QString &command = QString())
{
    CommandLine commandLine;
    commandLine.error = what + QStringLiteral("; see publish %1--help")
                                   .arg(command.isEmpty() ? QString() : command + QLatin1Char(' '));
    return commandLine;
}

CommandLine Help(const QString &text)
{
    CommandLine commandLine;
    commandLine.help = text;
    return commandLine;
}

void AddOption(QCommandLineParser &parser, const Option &option)
{
    QCommandLineOption added(Text(option.name));
    if (option.value != nullptr)
        added.setValueName(Text(option.value));
    parser.addOption(added);
}

/// What is wrong with the values, each by itself; empty when nothing is.
QString WhatIsWrong(const QCommandLineParser &parser, const CommandDescription &command)
{
    for (const Option &option : command.options) {
        const QString name = Text(option.name);
        const QStringList values = parser.values(name);
        if (values.size() > 1 && option.need != Repeatable)
            return QStringLiteral("--%1 is given twice").arg(name);
        if (option.need == Required && (values.isEmpty() || values.first().isEmpty()))
            return OptionText(option) + QStringLiteral(" is missing");
    }
    const int operands = parser.positionalArguments().size();
    if (operands < command.leastOperands) {
        return Text(command.operand).section(QLatin1Char(' '), operands, operands) +
               QStringLiteral(" is missing");
    }
    if (operands > command.mostOperands)
        return QStringLiteral("\"%1\" is one too many").arg(parser.positionalArguments().last());
    return QString();
}

/// What follows the first operand.
void ReadOperands(const QStringList &operands, Request &request)
{
    const QStringList others = operands.mid(1);
    switch (request.command) {
    case Request::Promote:
        request.out = others.first();
        break;
    case Request::Push:
        request.nodes = others;
        break;
    case Request::Advance:
        request.logs = others;
        break;
    case Request::ReportOnLogs:
        request.logs = operands;
        break;
    default:
        break;
    }
}

/// Reads "interrupted=2" and "unchanged=5"; false for anything else.
bool ReadLimit(const QString &text, Request &request)
{
    const QString kind = text.section(QLatin1Char('='), 0, 0);
    bool isNumber = false;
    const double percent = text.section(QLatin1Char('='), 1).toDouble(&isNumber);
    if (!isNumber || percent < 0 || percent > 100)
        return false;
    if (kind == QLatin1String("interrupted"))
        request.stopAboveInterrupted = percent;
    else if (kind == QLatin1String("unchanged"))
        request.stopAboveUnchanged = percent;
    else
        return false;
    return true;
}

CommandLine ReadCommand(const CommandDescription &command, const QStringList &arguments)
{
    const QString name = Text(command.name);
    const Option help{"help", nullptr, Flag, ""};
    QCommandLineParser parser;
    AddOption(parser, help);
    for (const Option &option : command.options)
        AddOption(parser, option);

    // The first argument is taken for the program's name.
    if (!parser.parse(arguments)) {
        QString error = parser.errorText();
        error.chop(error.endsWith(QLatin1Char('.')) ? 1 : 0);
        return Wrong(error, name);
    }
    if (parser.isSet(Text(help.name)))
        return Help(CommandHelp(command));
    const QString wrong = WhatIsWrong(parser, command);
    if (!wrong.isEmpty())
        return Wrong(wrong, name);

    // The parser complains when it is asked about an option of another command.
    const auto isKnown = [&command](const Option &option) {
        return std::any_of(
            command.options.cbegin(), command.options.cend(),
            [&option](const Option &known) { return qstrcmp(known.name, option.name) == 0; });
    };
    const auto value = [&parser, &isKnown](const Option &option) {
        return isKnown(option) ? parser.value(Text(option.name)) : QString();
    };
    CommandLine commandLine;
    Request &request = commandLine.request;
    request.command = command.command;
    request.source = command.operand != nullptr ? parser.positionalArguments().first()
                                                : parser.value(Text(command.options.first().name));
    request.name = value({"name", nullptr, Optional, nullptr});
    request.version = value(kVersion);
    request.notesZhFile = value(kNotesZh);
    request.notesEnFile = value(kNotesEn);
    request.out = value(kOut);
    request.urlPrefix = value(kUrlPrefix);
    request.updaterFolder = value(kUpdaterFolder);
    if (request.updaterFolder.isEmpty())
        request.updaterFolder = QStringLiteral("AutoUpdate");
    const auto isSet = [&parser, &isKnown](const Option &option) {
        return isKnown(option) && parser.isSet(Text(option.name));
    };
    if (!isSet(kNoDefaultExcludes))
        request.exclude = Exclusion::Defaults();
    if (isKnown(kExclude))
        request.exclude += parser.values(Text(kExclude.name));
    for (const QString &pattern : qAsConst(request.exclude)) {
        if (!Exclusion::IsPattern(pattern))
            return Wrong(QStringLiteral("\"%1\" is no pattern of names").arg(pattern), name);
    }
    ReadOperands(parser.positionalArguments(), request);
    request.allowShorterVersion = isSet(kAllowShorterVersion);
    request.allowUpdater = isSet(kAllowUpdater);
    request.configFile = value(kConfigFile);
    request.knownDigests = value(kKnown);
    request.downgrade = isSet(kDowngrade);
    request.dryRun = isSet(kDryRun);
    if (isSet(kShare)) {
        request.share = ReadShare(value(kShare));
        if (request.share == 0) {
            return Wrong(QStringLiteral("--share is no number from 0.1 to 100 with one decimal"),
                         name);
        }
    }
    request.plan = value(kPlan);
    if (isSet(kPlan) && (ReadPlan(request.plan).isEmpty() || isSet(kShare))) {
        return Wrong(QStringLiteral("--plan is not, as in \"1% 1d, 10% 12h, 100%\", growing "
                                    "shares with their times, without --share"),
                     name);
    }
    if (isSet(kLinkGbit) || isSet(kClients)) {
        request.linkGbit = value(kLinkGbit).toDouble();
        request.clients = value(kClients).toDouble();
        if (request.linkGbit <= 0 || request.clients < 1)
            return Wrong(
                QStringLiteral("--link-gbit and --clients are two numbers that go together"), name);
    }
    request.product = value(kProduct);
    request.htmlFile = value(kHtml);
    if (command.command == Request::CheckConfiguration)
        request.clientFolder = value(kClientFolder);
    request.packagesAreInstallers = isSet(kInstallers);
    if (isKnown(kLog))
        request.logs = parser.values(Text(kLog.name)) + request.logs;
    if (command.command == Request::Advance && request.logs.isEmpty())
        return Wrong(QStringLiteral("--log LOG is missing"), name);
    if (isKnown(kStopAbove)) {
        for (const QString &limit : parser.values(Text(kStopAbove.name))) {
            if (!ReadLimit(limit, request)) {
                return Wrong(QStringLiteral("\"%1\" is neither interrupted=PERCENT nor "
                                            "unchanged=PERCENT")
                                 .arg(limit),
                             name);
            }
        }
    }
    if (isKnown(kFrom))
        request.from = parser.values(Text(kFrom.name));
    for (const QString &pattern : qAsConst(request.from)) {
        if (!IsVersionPattern(pattern)) {
            return Wrong(QStringLiteral("\"%1\" is neither a version nor, as 2.0.*, the first "
                                        "one to three parts of some")
                             .arg(pattern),
                         name);
        }
    }
    if (isKnown(kNetwork))
        request.networks = parser.values(Text(kNetwork.name));
    for (const QString &network : qAsConst(request.networks)) {
        NetworkPrefix prefix;
        if (const Failure failure = NetworkPrefix::Read(network, prefix))
            return Wrong(failure->message, name);
    }
    request.asJson = parser.isSet(Text(kJson.name));

    const QString update = value(kUpdate);
    request.forced = update == QLatin1String("forced");
    if (isKnown(kUpdate) && !request.forced && update != QLatin1String("optional"))
        return Wrong(QStringLiteral("--update is neither optional nor forced"), name);
    return commandLine;
}

CommandLine ReadArguments(const QStringList &arguments)
{
    if (arguments.isEmpty())
        return Wrong(QStringLiteral("no command is given"));
    const QString &first = arguments.first();
    if (first == QLatin1String("--help") || first == QLatin1String("-h") ||
        first == QLatin1String("help"))
        return Help(GeneralHelp());
    if (first == QLatin1String("--version")) {
        CommandLine commandLine;
        commandLine.asksForVersion = true;
        return commandLine;
    }
    for (const CommandDescription &command : Commands()) {
        if (first == QLatin1String(command.name))
            return ReadCommand(command, arguments);
    }
    return Wrong(QStringLiteral("\"%1\" is no command").arg(first));
}

} // namespace

CommandLine ReadCommandLine(const QStringList &arguments)
{
    CommandLine commandLine = ReadArguments(arguments);
    commandLine.asJson = arguments.contains(QStringLiteral("--") + Text(kJson.name));
    return commandLine;
}

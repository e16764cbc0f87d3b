#include "release/publish/commandtable.h"

using namespace CommandTable;

namespace
{

/// Characters of the first column of a command's help.
constexpr int kOptionWidth = 26;

} // namespace

const Option CommandTable::kName{"name", "NAME", Optional,
                                 "publish it as NAME-VERSION.exe (default: as it is called)"};
const Option CommandTable::kVersion{"version", "VERSION", Required,
                                    "the version that is offered, as in 2.1.3"};
const Option CommandTable::kUpdate{"update", "optional|forced", Required,
                                   "may the user postpone it?"};
const Option CommandTable::kNotesZh{"notes-zh", "FILE", Required,
                                    "release notes in Chinese, UTF-8; plain or HTML"};
const Option CommandTable::kNotesEn{"notes-en", "FILE", Required, "release notes in English"};
const Option CommandTable::kOut{"out", "DIR", Required,
                                "the release tree; made when it is not there"};
const Option CommandTable::kUrlPrefix{
    "url-prefix", "URL", Optional,
    "what precedes /packages/ in the announced address; may end with /packages"};
const Option CommandTable::kUpdaterFolder{
    "updater-folder", "NAME", Optional,
    "the updater's folder in the client's, which a package must not hold (default: AutoUpdate)"};
const Option CommandTable::kExclude{
    "exclude", "PATTERN", Repeatable,
    "leaves out files with such names, as in *.pdb or doc/*.txt; repeatable"};
const Option CommandTable::kNoDefaultExcludes{"no-default-excludes", nullptr, Flag,
                                              "also packs what is left out by default: .git, .svn, "
                                              ".hg, .DS_Store, Thumbs.db, ..."};
const Option CommandTable::kAllowUpdater{"allow-updater", nullptr, Flag,
                                         "accepts a package that contains the updater's folder"};
const Option CommandTable::kAllowShorterVersion{
    "allow-shorter-version", nullptr, Flag,
    "publish even though clients may never start again after this version"};
const Option CommandTable::kRequireSignature{
    "require-signature", nullptr, Flag,
    "refuses programs and installers that have no valid signature"};
const Option CommandTable::kSigner{
    "signer", "NAME", Optional,
    "with --require-signature: the common name in the signer's certificate"};
const Option CommandTable::kAuthorities{
    "authorities", "FILE", Optional,
    "with --require-signature: the certificates to trust, PEM (default: the system's)"};
const Option CommandTable::kConfigFile{
    "config-file", "PATH", Optional,
    "the client's version file in DIR: it must tell the same version"};
const Option CommandTable::kKnown{
    "known", "FILE", Optional,
    "SHA256SUMS of earlier trees: no package is published with other bytes again"};
const Option CommandTable::kShareAtOnce{
    "share", "PERCENT", Optional,
    "roll it out at once to this share of all clients (default: to none)"};
const Option CommandTable::kRelease{"version", "VERSION", Required, "the release, by its version"};
const Option CommandTable::kReleaseOrAll{"version", "VERSION", Optional,
                                         "only this release (default: whatever is rolled out)"};
const Option CommandTable::kShare{"share", "PERCENT", Optional,
                                  "from 0.1 to 100, in steps of 0.1 (default: as it is)"};
const Option CommandTable::kFrom{
    "from", "PATTERN", Repeatable,
    "only clients with such a version, as in 2.0.*; * lifts the restriction"};
const Option CommandTable::kNetwork{
    "network", "CIDR", Repeatable,
    "also everybody in this network, whatever the share, as in 192.0.2.0/24;\n"
    "none: forget those of before"};
const Option CommandTable::kPlan{
    "plan", "STEPS", Optional,
    "shares that \"publish advance\" raises: \"1% 1d, 10% 1d, 50% 1d, 100%\""};
const Option CommandTable::kLinkGbit{
    "link-gbit", "GBIT", Optional,
    "warn when downloads would need more than this line; with --clients"};
const Option CommandTable::kClients{"clients", "NUMBER", Optional, "how many clients there are"};
const Option CommandTable::kLog{"log", "LOG...", Repeatable,
                                "an access log of a node, as it is or gzipped"};
const Option CommandTable::kProduct{
    "product", "NAME", Optional,
    "the tree's product in the logs (default: the one without a name)"};
const Option CommandTable::kStopAbove{
    "stop-above", "KIND=PERCENT", Repeatable,
    "interrupted=2: more interrupted downloads than before, in percentage points;\n"
    "unchanged=5: of those that completed it, came back without it"};
const Option CommandTable::kHtml{"html", "FILE", Optional, "a page with charts as well"};
const Option CommandTable::kClientFolder{"client", "DIR", Optional,
                                         "the client's folder as it ships"};
const Option CommandTable::kInstallers{"installer", nullptr, Flag,
                                       "packages are installers (default: zip archives)"};
const Option CommandTable::kDowngrade{"downgrade", nullptr, Flag,
                                      "offer the previous release to clients that have this one"};
const Option CommandTable::kDryRun{"dry-run", nullptr, Flag,
                                   "tell what would be done, and write nothing"};
const Option CommandTable::kJson{"json", nullptr, Flag,
                                 "the result as JSON on the standard output"};

const QVector<CommandDescription> &CommandTable::Commands()
{
    static const QVector<CommandDescription> commands{
        {Request::Zip,
         "zip",
         nullptr,
         0,
         0,
         "packs a client's folder, and publishes the package",
         "publish zip --client build/Client --name Client --version 2.1.3 --update optional \\\n"
         "      --config-file '~version/version.json' --notes-zh notes-zh.txt \\\n"
         "      --notes-en notes-en.txt --out site",
         {{"client", "DIR", Required, "the new client: its contents go over the installed one"},
          {kName.name, kName.value, Required, "the package is called NAME-VERSION.zip"},
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
          kRequireSignature,
          kSigner,
          kAuthorities,
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
          kName,
          kVersion,
          kUpdate,
          kNotesZh,
          kNotesEn,
          kOut,
          kUrlPrefix,
          kShareAtOnce,
          kKnown,
          kRequireSignature,
          kSigner,
          kAuthorities,
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
         {kRelease,
          {kUrlPrefix.name, kUrlPrefix.value, Optional,
           "what precedes /packages/ in the announced address (default: as TO's last release)"},
          kKnown,
          kAllowShorterVersion,
          kDryRun,
          kJson}},
        {Request::Verify,
         "verify",
         "DIR",
         1,
         1,
         "checks every release of a tree, and what it offers, against every rule; writes nothing",
         "publish verify site",
         {kUpdaterFolder, kAllowUpdater, kRequireSignature, kSigner, kAuthorities, kJson}},
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
         "stops all offers, or one release",
         "publish stop site --version 2.1.3",
         {kReleaseOrAll, kDryRun, kJson}},
        {Request::Resume,
         "resume",
         "DIR",
         1,
         1,
         "lifts a stop; each release keeps its share",
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
         "shows from the access logs of all nodes how each release is doing",
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

QString CommandTable::Text(const char *text)
{
    return QString::fromLatin1(text);
}

QString CommandTable::OptionText(const Option &option)
{
    QString text = QStringLiteral("--") + Text(option.name);
    if (option.value != nullptr)
        text += QLatin1Char(' ') + Text(option.value);
    return text;
}

QString CommandTable::GeneralHelp()
{
    QString help = QStringLiteral("publish creates and verifies releases for the updater.\n\n");
    for (const CommandDescription &command : Commands()) {
        help += QStringLiteral("publish %1: %2\n  %3\n\n")
                    .arg(Text(command.name), Text(command.help), Text(command.example));
    }
    return help + QStringLiteral("publish COMMAND --help shows its options, "
                                 "publish --version the version of the tool.\n"
                                 "Exit codes: 0 done, 1 refused or failed, 2 wrong command "
                                 "line.\n");
}

QString CommandTable::CommandHelp(const CommandDescription &command)
{
    QString help =
        QStringLiteral("publish %1 %2: %3\n\nOptions:\n")
            .arg(Text(command.name),
                 command.operand != nullptr ? Text(command.operand) : QStringLiteral("OPTIONS"),
                 Text(command.help));
    const QString nextLine = QLatin1Char('\n') + QString(kOptionWidth + 3, QLatin1Char(' '));
    for (const Option &option : command.options) {
        help += QStringLiteral("  %1 %2%3\n")
                    .arg(OptionText(option), -kOptionWidth)
                    .arg(Text(option.help).replace(QLatin1Char('\n'), nextLine),
                         option.need == Required ? QStringLiteral(" (required)") : QString());
    }
    return help +
           QStringLiteral("\nExample:\n  %1\n\nExit codes: 0 done, 1 refused (one line per reason "
                          "on standard error), 2 wrong command line.\n")
               .arg(Text(command.example));
}

// SPDX-License-Identifier: MIT
#include "release/publish/commandline/commandtable.h"

using namespace CommandTable;

namespace
{

/// The width of the first column of a command's help, in characters.
constexpr int kOptionWidth = 26;

} // namespace

const Option CommandTable::kName{"name", "NAME", Optional,
                                 "publish it as NAME-VERSION.exe (default: its own file name)"};
const Option CommandTable::kVersion{"version", "VERSION", Required,
                                    "the version of the release, such as 2.1.3"};
const Option CommandTable::kUpdate{"update", "optional|forced", Required,
                                   "whether the user may postpone the update"};
const Option CommandTable::kNotesZh{"notes-zh", "FILE", Required,
                                    "release notes in Chinese: UTF-8, plain text or HTML"};
const Option CommandTable::kNotesEn{"notes-en", "FILE", Required, "release notes in English"};
const Option CommandTable::kOut{"out", "DIR", Required,
                                "the release tree; created if it does not exist"};
const Option CommandTable::kUrlPrefix{
    "url-prefix", "URL", Optional,
    "the part of the announced address before /packages/; may end with /packages"};
const Option CommandTable::kUpdaterFolder{
    "updater-folder", "NAME", Optional,
    "the updater's folder in the client's, which must not be packed (default: AutoUpdate)"};
const Option CommandTable::kExclude{
    "exclude", "PATTERN", Repeatable,
    "leave out matching files, such as *.pdb or doc/*.txt; repeatable"};
const Option CommandTable::kNoDefaultExcludes{
    "no-default-excludes", nullptr, Flag,
    "also pack what is left out by default: .git, .svn, .hg, .DS_Store, Thumbs.db, ..."};
const Option CommandTable::kAllowUpdater{"allow-updater", nullptr, Flag,
                                         "accept a package that contains the updater's folder"};
const Option CommandTable::kAllowShorterVersion{
    "allow-shorter-version", nullptr, Flag,
    "publish even if some clients will never start again after this update"};
const Option CommandTable::kRequireSignature{
    "require-signature", nullptr, Flag,
    "refuse programs and installers that have no valid signature"};
const Option CommandTable::kSigner{
    "signer", "NAME", Optional,
    "with --require-signature: the common name in the signer's certificate"};
const Option CommandTable::kAuthorities{
    "authorities", "FILE", Optional,
    "with --require-signature: the certificates to trust, PEM (default: the system's)"};
const Option CommandTable::kConfigFile{
    "config-file", "PATH", Optional,
    "the client's version file in DIR; it must contain the same version"};
const Option CommandTable::kKnown{
    "known", "FILE", Optional,
    "SHA256SUMS of earlier trees; refuse a package of the same name with different content"};
const Option CommandTable::kShareAtOnce{
    "share", "PERCENT", Optional,
    "roll it out to this share of all clients right away (default: to none)"};
const Option CommandTable::kRelease{"version", "VERSION", Required, "the release, by its version"};
const Option CommandTable::kReleaseOrAll{"version", "VERSION", Optional,
                                         "only this release (default: all releases)"};
const Option CommandTable::kShare{"share", "PERCENT", Optional,
                                  "from 0.1 to 100, in steps of 0.1 (default: unchanged)"};
const Option CommandTable::kFrom{
    "from", "PATTERN", Repeatable,
    "only clients with a matching version, such as 2.0.*; * lifts the restriction"};
const Option CommandTable::kNetwork{
    "network", "CIDR", Repeatable,
    "also every client in this network, such as 192.0.2.0/24, whatever the share;\n"
    "none: remove the networks given before"};
const Option CommandTable::kPlan{
    "plan", "STEPS", Optional,
    "the shares that \"publish advance\" goes through: \"1% 1d, 10% 1d, 50% 1d, 100%\""};
const Option CommandTable::kLinkGbit{
    "link-gbit", "GBIT", Optional,
    "warn when downloads would need more bandwidth than this; with --clients"};
const Option CommandTable::kClients{"clients", "NUMBER", Optional, "how many clients there are"};
const Option CommandTable::kLog{"log", "LOG...", Repeatable,
                                "an access log of a node, plain or gzipped"};
const Option CommandTable::kProduct{
    "product", "NAME", Optional,
    "the product in the logs that the tree belongs to (default: the one without a name)"};
const Option CommandTable::kStopAbove{
    "stop-above", "KIND=PERCENT", Repeatable,
    "interrupted=2: percentage points of interrupted downloads above earlier releases;\n"
    "unchanged=5: percentage of networks that still have the old version after the download"};
const Option CommandTable::kHtml{"html", "FILE", Optional,
                                 "also write the report as a page with charts"};
const Option CommandTable::kClientFolder{"client", "DIR", Optional,
                                         "the client's folder as it ships"};
const Option CommandTable::kInstallers{"installer", nullptr, Flag,
                                       "packages are installers (default: zip archives)"};
const Option CommandTable::kDowngrade{"downgrade", nullptr, Flag,
                                      "offer the previous release to clients that have this one"};
const Option CommandTable::kDryRun{"dry-run", nullptr, Flag,
                                   "report what would be done, and write nothing"};
const Option CommandTable::kJson{"json", nullptr, Flag,
                                 "print the result as JSON on standard output"};

const QVector<CommandDescription> &CommandTable::Commands()
{
    static const QVector<CommandDescription> commands{
        {Request::Zip,
         "zip",
         nullptr,
         0,
         0,
         "packs a client's folder and publishes the package",
         "publish zip --client build/Client --name Client --version 2.1.3 --update optional \\\n"
         "      --config-file '~version/version.json' --notes-zh notes-zh.txt \\\n"
         "      --notes-en notes-en.txt --out site",
         {{"client", "DIR", Required,
           "the new client; its contents are copied over the installed one"},
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
         "publishes an installer, which the updater will start",
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
         "publishes a release of one tree in another one, with the identical package",
         "publish promote client-beta client --version 2.1.3",
         {kRelease,
          {kUrlPrefix.name, kUrlPrefix.value, Optional,
           "the part of the announced address before /packages/ (default: that of TO's last "
           "release)"},
          kKnown,
          kAllowShorterVersion,
          kDryRun,
          kJson}},
        {Request::Verify,
         "verify",
         "DIR",
         1,
         1,
         "checks every release of a tree and its offers against all rules; writes nothing",
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
         "takes the next step of a plan, or stops the release when there are too many failures",
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
         "withdraws a release permanently",
         "publish rollback site --version 2.1.3 --downgrade",
         {kRelease, kDowngrade, kAllowShorterVersion, kDryRun, kJson}},
        {Request::List,
         "list",
         "DIR",
         1,
         1,
         "lists the releases of a tree and who is offered them",
         "publish list site",
         {kJson}},
        {Request::Push,
         "push",
         "DIR NODE...",
         2,
         kMany,
         "copies a tree to the nodes that serve it, packages first and decisions last",
         "publish push site updates@node1:/srv/updates updates@node2:/srv/updates",
         {kDryRun, kJson}},
        {Request::ReportOnLogs,
         "report",
         "LOG...",
         1,
         kMany,
         "shows how each release is doing, from the access logs of all nodes",
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
    return help +
           QStringLiteral("\"publish COMMAND --help\" shows the options of a command, "
                          "\"publish --version\" the version of the tool.\n"
                          "Exit codes: 0 done, 1 refused or failed, 2 wrong command line.\n");
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
           QStringLiteral(
               "\nExample:\n  %1\n\n"
               "Exit codes: 0 done, 1 refused or failed (one line per reason on standard error), "
               "2 wrong command line.\n")
               .arg(Text(command.example));
}

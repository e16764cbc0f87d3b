#include "release/publish/commandline.h"

#include "release/publish/exclusion.h"

#include <QCommandLineParser>
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

struct CommandDescription {
    Request::Command command;
    const char *name;
    const char *operand; ///< what follows the options; null when nothing does
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
const Option kJson{"json", nullptr, Flag, "the result as JSON on the standard output"};

const QVector<CommandDescription> &Commands()
{
    static const QVector<CommandDescription> commands{
        {Request::Zip,
         "zip",
         nullptr,
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
          kExclude,
          kNoDefaultExcludes,
          kUpdaterFolder,
          kAllowUpdater,
          kAllowShorterVersion,
          kJson}},
        {Request::Installer,
         "installer",
         nullptr,
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
          kAllowShorterVersion,
          kJson}},
        {Request::Verify,
         "verify",
         "DIR",
         "holds a published release against every rule; writes nothing",
         "publish verify site",
         {kUpdaterFolder, kAllowUpdater, kJson}},
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
    if (command.operand != nullptr && operands == 0)
        return Text(command.operand) + QStringLiteral(" is missing");
    if (operands > (command.operand != nullptr ? 1 : 0))
        return QStringLiteral("\"%1\" is one too many").arg(parser.positionalArguments().last());
    return QString();
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
    request.allowShorterVersion = isSet(kAllowShorterVersion);
    request.allowUpdater = isSet(kAllowUpdater);
    request.asJson = parser.isSet(Text(kJson.name));

    const QString update = value(kUpdate);
    request.forced = update == QLatin1String("forced");
    if (command.command != Request::Verify && !request.forced &&
        update != QLatin1String("optional"))
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

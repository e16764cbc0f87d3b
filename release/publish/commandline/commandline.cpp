// SPDX-License-Identifier: MIT
#include "release/publish/commandline/commandline.h"

#include "release/publish/commandline/commandtable.h"
#include "release/publish/packing/exclusion.h"
#include "release/publish/tree/networkprefix.h"
#include "release/publish/tree/releaselist.h"

#include <QCommandLineParser>
#include <QRegularExpression>
#include <QVector>

#include <algorithm>
#include <cmath>

using namespace CommandTable;

namespace
{

const QString kNoNetworks = QStringLiteral("none");
const QString kUsualUpdaterFolder = QStringLiteral("AutoUpdate");

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

/// What is wrong with single options and operands; empty when nothing is.
QString FindWrongOption(const QCommandLineParser &parser, const CommandDescription &command)
{
    for (const Option &option : command.options) {
        const QString name = Text(option.name);
        const QStringList values = parser.values(name);
        if (values.size() > 1 && option.need != Repeatable)
            return QStringLiteral("--%1 is given twice").arg(name);
        if (option.need == Required && (values.isEmpty() || values.first().isEmpty()))
            return OptionText(option) + QStringLiteral(" is missing");
        // Probably an unset variable of a script. It would count as "not given" or as the current
        // folder.
        if (values.contains(QString()))
            return OptionText(option) + QStringLiteral(" is empty");
    }
    const int operands = parser.positionalArguments().size();
    if (operands < command.leastOperands) {
        return Text(command.operand).section(QLatin1Char(' '), operands, operands) +
               QStringLiteral(" is missing");
    }
    if (operands > command.mostOperands)
        return QStringLiteral("unexpected argument \"%1\"")
            .arg(parser.positionalArguments().last());
    if (parser.positionalArguments().contains(QString()))
        return Text(command.operand) + QStringLiteral(" must not be empty");
    return QString();
}

/// Fills a request from the options of a command. Each step returns what is wrong, or an empty
/// text.
class RequestReader
{
public:
    RequestReader(const QCommandLineParser &parser, const CommandDescription &command)
        : m_parser(parser), m_command(command)
    {
    }

    QString Read(Request &request) const
    {
        request.command = m_command.command;
        request.asJson = IsSet(kJson);
        request.dryRun = IsSet(kDryRun);
        request.version = Value(kVersion);
        ReadOperands(request);
        ReadPackage(request);
        ReadLogs(request);
        using Step = QString (RequestReader::*)(Request &) const;
        for (const Step step : {&RequestReader::ReadExclusion, &RequestReader::ReadSignature,
                                &RequestReader::ReadUpdate, &RequestReader::ReadShareAndPlan,
                                &RequestReader::ReadRestrictions, &RequestReader::ReadBandwidth,
                                &RequestReader::ReadLimits}) {
            const QString wrong = (this->*step)(request);
            if (!wrong.isEmpty())
                return wrong;
        }
        return QString();
    }

private:
    // QCommandLineParser logs a warning when it is asked about an option of another command.
    bool IsKnown(const Option &option) const
    {
        return std::any_of(
            m_command.options.cbegin(), m_command.options.cend(),
            [&option](const Option &known) { return qstrcmp(known.name, option.name) == 0; });
    }

    bool IsSet(const Option &option) const
    {
        return IsKnown(option) && m_parser.isSet(Text(option.name));
    }

    QString Value(const Option &option) const
    {
        return IsKnown(option) ? m_parser.value(Text(option.name)) : QString();
    }

    QStringList Values(const Option &option) const
    {
        return IsKnown(option) ? m_parser.values(Text(option.name)) : QStringList();
    }

    void ReadOperands(Request &request) const
    {
        const QStringList operands = m_parser.positionalArguments();
        request.source = m_command.operand != nullptr
                             ? operands.first()
                             : m_parser.value(Text(m_command.options.first().name));
        if (request.command == Request::Promote)
            request.out = operands.at(1);
        if (request.command == Request::Push)
            request.nodes = operands.mid(1);
    }

    void ReadPackage(Request &request) const
    {
        request.name = Value(kName);
        request.notesZhFile = Value(kNotesZh);
        request.notesEnFile = Value(kNotesEn);
        if (IsKnown(kOut))
            request.out = Value(kOut);
        request.urlPrefix = Value(kUrlPrefix);
        request.configFile = Value(kConfigFile);
        request.knownDigests = Value(kKnown);
        request.updaterFolder = IsSet(kUpdaterFolder) ? Value(kUpdaterFolder) : kUsualUpdaterFolder;
        request.allowUpdater = IsSet(kAllowUpdater);
        request.allowShorterVersion = IsSet(kAllowShorterVersion);
        request.downgrade = IsSet(kDowngrade);
        request.packagesAreInstallers = IsSet(kInstallers);
        if (request.command == Request::CheckConfiguration)
            request.clientFolder = Value(kClientFolder);
    }

    void ReadLogs(Request &request) const
    {
        const QStringList operands = m_parser.positionalArguments();
        // When the shell expands a pattern after --log, all files but the first become operands.
        if (request.command == Request::Advance)
            request.logs = Values(kLog) + operands.mid(1);
        else if (request.command == Request::ReportOnLogs)
            request.logs = operands;
        request.product = Value(kProduct);
        request.htmlFile = Value(kHtml);
    }

    QString ReadExclusion(Request &request) const
    {
        if (!IsSet(kNoDefaultExcludes))
            request.exclude = Exclusion::Defaults();
        request.exclude += Values(kExclude);
        for (const QString &pattern : qAsConst(request.exclude)) {
            if (!Exclusion::IsPattern(pattern))
                return QStringLiteral("\"%1\" is not a pattern for file names").arg(pattern);
        }
        return QString();
    }

    QString ReadSignature(Request &request) const
    {
        request.signature = {IsSet(kRequireSignature), Value(kSigner), Value(kAuthorities)};
        for (const Option &option : {kSigner, kAuthorities}) {
            if (IsSet(option) && !request.signature.isRequired)
                return OptionText(option) + QStringLiteral(" goes with --require-signature");
        }
        return QString();
    }

    QString ReadUpdate(Request &request) const
    {
        const QString update = Value(kUpdate);
        request.forced = update == QLatin1String("forced");
        if (IsKnown(kUpdate) && !request.forced && update != QLatin1String("optional"))
            return QStringLiteral("--update is neither optional nor forced");
        return QString();
    }

    QString ReadShareAndPlan(Request &request) const
    {
        if (IsSet(kShare)) {
            request.share = ReadShare(Value(kShare));
            if (request.share == 0)
                return QStringLiteral(
                    "--share must be a number from 0.1 to 100 with at most one decimal");
        }
        if (!IsSet(kPlan))
            return QString();
        request.plan = PlanText(ReadPlan(Value(kPlan)));
        if (request.plan.isEmpty()) {
            return QStringLiteral("--plan must list growing shares, each but the last with a "
                                  "duration, as in \"1% 1d, 10% 12h, 100%\"");
        }
        if (IsSet(kShare))
            return QStringLiteral("--plan and --share exclude each other");
        return QString();
    }

    QString ReadRestrictions(Request &request) const
    {
        request.from = Values(kFrom);
        for (const QString &pattern : qAsConst(request.from)) {
            if (!IsVersionPattern(pattern)) {
                return QStringLiteral("\"%1\" is neither a version nor a pattern such as 2.0.*, "
                                      "with one to three parts before the asterisk")
                    .arg(pattern);
            }
        }
        request.networks = Values(kNetwork);
        request.forgetsNetworks = request.networks.removeAll(kNoNetworks) > 0;
        for (const QString &network : qAsConst(request.networks)) {
            NetworkPrefix prefix;
            if (const Failure failure = NetworkPrefix::Read(network, prefix))
                return failure->message;
        }
        return QString();
    }

    QString ReadBandwidth(Request &request) const
    {
        if (!IsSet(kLinkGbit) && !IsSet(kClients))
            return QString();
        request.linkGbit = Value(kLinkGbit).toDouble();
        request.clients = Value(kClients).toDouble();
        // toDouble() reads "nan" and "inf" as well.
        if (!std::isfinite(request.linkGbit) || !std::isfinite(request.clients) ||
            request.linkGbit <= 0 || request.clients < 1)
            return QStringLiteral(
                "--link-gbit and --clients must be given together, as positive numbers");
        return QString();
    }

    QString ReadLimits(Request &request) const
    {
        if (request.command == Request::Advance && request.logs.isEmpty())
            return QStringLiteral("--log LOG is missing");
        for (const QString &text : Values(kStopAbove)) {
            const QString kind = text.section(QLatin1Char('='), 0, 0);
            bool isNumber = false;
            const double percent = text.section(QLatin1Char('='), 1).toDouble(&isNumber);
            const bool isInterrupted = kind == QLatin1String("interrupted");
            const bool isUnchanged = kind == QLatin1String("unchanged");
            // Comparisons with "nan" are false, so it must not be tested the other way round.
            const bool isPercentage = isNumber && percent >= 0 && percent <= 100;
            if (!isPercentage || isInterrupted == isUnchanged) {
                return QStringLiteral("\"%1\" is neither interrupted=PERCENT nor "
                                      "unchanged=PERCENT")
                    .arg(text);
            }
            (isInterrupted ? request.stopAboveInterrupted : request.stopAboveUnchanged) = percent;
        }
        return QString();
    }

    const QCommandLineParser &m_parser;
    const CommandDescription &m_command;
};

CommandLine ReadCommand(const CommandDescription &command, const QStringList &arguments)
{
    const QString name = Text(command.name);
    const Option help{"help", nullptr, Flag, ""};
    QCommandLineParser parser;
    AddOption(parser, help);
    for (const Option &option : command.options)
        AddOption(parser, option);

    // QCommandLineParser skips the first argument, usually the program's name and here the command.
    if (!parser.parse(arguments)) {
        QString error = parser.errorText();
        error.chop(error.endsWith(QLatin1Char('.')) ? 1 : 0);
        return Wrong(error, name);
    }
    if (parser.isSet(Text(help.name)))
        return Help(CommandHelp(command));
    QString wrong = FindWrongOption(parser, command);
    CommandLine commandLine;
    if (wrong.isEmpty())
        wrong = RequestReader(parser, command).Read(commandLine.request);
    return wrong.isEmpty() ? commandLine : Wrong(wrong, name);
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
    return Wrong(QStringLiteral("unknown command \"%1\"").arg(first));
}

} // namespace

CommandLine ReadCommandLine(const QStringList &arguments)
{
    CommandLine commandLine = ReadArguments(arguments);
    commandLine.asJson = arguments.contains(QStringLiteral("--") + Text(kJson.name));
    return commandLine;
}

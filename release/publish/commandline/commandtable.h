// SPDX-License-Identifier: MIT
#pragma once

#include "release/publish/commandline/commandline.h"

#include <QString>
#include <QVector>

/// The names, options and help texts of all commands. Callable from every thread.
namespace CommandTable
{

enum Need { Required, Optional, Repeatable, Flag };

struct Option {
    const char *name;
    const char *value; ///< its placeholder in the help; null for a flag
    Need need;
    const char *help;
};

constexpr int kMany = 10000;

struct CommandDescription {
    Request::Command command;
    const char *name;
    const char *operand; ///< placeholder of the operands; null when there are none
    int leastOperands;
    int mostOperands;
    const char *help;
    const char *example;
    QVector<Option> options;
};

// The options that several commands take, or that commandline.cpp reads by name.
extern const Option kName;
extern const Option kVersion;
extern const Option kUpdate;
extern const Option kNotesZh;
extern const Option kNotesEn;
extern const Option kOut;
extern const Option kUrlPrefix;
extern const Option kUpdaterFolder;
extern const Option kExclude;
extern const Option kNoDefaultExcludes;
extern const Option kAllowUpdater;
extern const Option kAllowShorterVersion;
extern const Option kRequireSignature;
extern const Option kSigner;
extern const Option kAuthorities;
extern const Option kConfigFile;
extern const Option kKnown;
extern const Option kShareAtOnce;
extern const Option kRelease;
extern const Option kReleaseOrAll;
extern const Option kShare;
extern const Option kFrom;
extern const Option kNetwork;
extern const Option kPlan;
extern const Option kLinkGbit;
extern const Option kClients;
extern const Option kLog;
extern const Option kProduct;
extern const Option kStopAbove;
extern const Option kHtml;
extern const Option kClientFolder;
extern const Option kInstallers;
extern const Option kDowngrade;
extern const Option kDryRun;
extern const Option kJson;

const QVector<CommandDescription> &Commands();

QString Text(const char *text);

/// An option for help texts and errors: "--share PERCENT".
QString OptionText(const Option &option);

/// The output of `publish --help`.
QString GeneralHelp();

/// The output of `publish COMMAND --help`.
QString CommandHelp(const CommandDescription &command);

} // namespace CommandTable

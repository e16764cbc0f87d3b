// SPDX-License-Identifier: MIT
#pragma once

#include "config/global.h"
#include "tests/ui/dialogs.h"
#include "ui/updatedialog.h"

#include <QTextEdit>

/// The prompt with these notes.
class Prompt : public UpdateDialog
{
public:
    explicit Prompt(const QString &notes)
    {
        Global::instance.language = QStringLiteral("en");
        Global::instance.latestVersionInfo = notes;
        updateMode(QStringLiteral("1"));
    }

    QTextEdit &Notes() const { return *Child<QTextEdit>(*this, "updateText"); }

    /// Whether all of the notes are shown as plain text; very long lines may be divided.
    bool HoldsAll(QString notes) const
    {
        QString shown = Notes().toPlainText();
        if (shown == notes)
            return true;
        constexpr int longLine = 60 * 1024;
        if (notes.size() < longLine)
            return false;
        return shown.remove(QLatin1Char('\n')) == notes.remove(QLatin1Char('\n'));
    }
};

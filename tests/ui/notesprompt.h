#pragma once

#include "config/global.h"
#include "tests/ui/dialogs.h"
#include "ui/updatedialog.h"

#include <QTextEdit>

/// The prompt with the notes in it.
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
};

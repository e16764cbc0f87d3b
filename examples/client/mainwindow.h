// SPDX-License-Identifier: MIT
#pragma once

#include "examples/client/clientfiles.h"

#include <QStringList>
#include <QTimer>
#include <QWidget>

class QLabel;
class QPlainTextEdit;
class QPushButton;

/// The client's one window.
class MainWindow : public QWidget
{
    Q_OBJECT

public:
    MainWindow();

    /// Does what the arguments ask for: those of this program's start, or of a second copy's.
    void TakeArguments(const QStringList &arguments);

    /// Shows the release notes once after an update.
    void ShowUnseenNotes();

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    QString Text(const char *english, const char *chinese) const;
    void ShowTexts();
    void ComeToTheFront();
    void CheckForUpdates();
    void ChangeLanguage();
    void Save();

    const QString m_version = ClientFiles::Version();
    ClientFiles::Session m_session = ClientFiles::ReadSession();
    bool m_english = ClientFiles::IsEnglish();
    QString m_profile;
    QTimer m_saveSoon;

    QLabel *const m_heading;
    QLabel *const m_meeting;
    QPlainTextEdit *const m_draft;
    QPushButton *const m_language; ///< switches to the other one
    QPushButton *const m_check;
    QLabel *const m_message;
};

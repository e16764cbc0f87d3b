// SPDX-License-Identifier: MIT
#include "ui/updatedialog.h"

#include "config/arguments.h"
#include "config/configcontract.h"
#include "config/global.h"
#include "config/servicecontract.h"
#include "install/clientprocess.h"
#include "ui/dialogwindow.h"
#include "ui/diskspace.h"
#include "ui/dwondialog.h"
#include "ui/releasenotes.h"
#include "ui/stylesheets.h"
#include "ui/versionline.h"
#include "ui_updatedialog.h"

#include <QCoreApplication>
#include <QPointer>
#include <QScrollBar>

namespace Mode = ServiceContract::Mode;

UpdateDialog::UpdateDialog(QWidget *parent)
    : QDialog(parent), ui(std::make_unique<Ui::UpdateDialog>()),
      dwonDialog(std::make_unique<DwonDialog>())
{
    ui->setupUi(this);
    SetUpWindow(this, ui->labIco);
    ui->labText->setStyleSheet(StyleSheets::PromptHeadline());
    ui->labVersion->setStyleSheet(StyleSheets::VersionLine());
    ui->checkRemid->setStyleSheet(StyleSheets::WithoutOwnFocusMark() +
                                  StyleSheets::NeverPromptCheckBox());
    ui->laterBtn->setStyleSheet(StyleSheets::WithoutOwnFocusMark() +
                                StyleSheets::SecondaryButton());
    ui->immedBtn->setStyleSheet(StyleSheets::WithoutOwnFocusMark() + StyleSheets::PrimaryButton());
    ui->updateText->setStyleSheet(StyleSheets::NotesText());
    ui->updateText->verticalScrollBar()->setStyleSheet(StyleSheets::NotesScrollBar());

    connect(ui->laterBtn, &QPushButton::clicked, this, &UpdateDialog::LaterUpdate);
    connect(ui->immedBtn, &QPushButton::clicked, this, &UpdateDialog::ImmediatelyUpdate);
    connect(dwonDialog.get(), &DwonDialog::GetPackAgain, this, &UpdateDialog::getPack);
}

UpdateDialog::~UpdateDialog() = default;

void UpdateDialog::updateMode(QString mode)
{
    const QStringList &arguments = Global::instance.cmdLineArgs;
    if (arguments.contains(Switch::Immediately)) {
        ImmediatelyUpdate();
        return;
    }

    const bool optional = mode == Mode::Optional;
    if (Global::instance.IsEnglish())
        SetEnglishTexts(optional);
    else
        SetChineseTexts(optional);
    ShowReleaseNotes();

    if (!optional) {
        ui->checkRemid->hide();
        ui->laterBtn->hide();
    }
    if (arguments.contains(Switch::NoRemind))
        ui->checkRemid->hide();
    setEnabled(true);
    show();
    // Qt scrolls to the bottom of the first line, which may be taller than the view.
    ui->updateText->verticalScrollBar()->setValue(0);
}

void UpdateDialog::SetEnglishTexts(bool optional)
{
    setWindowTitle(QStringLiteral("App Update"));
    ui->labText->setStyleSheet(optional ? StyleSheets::EnglishPromptHeadline()
                                        : StyleSheets::EnglishForcedPromptHeadline());
    ui->labText->setText(
        optional ? QStringLiteral("New version detected, update?")
                 : QStringLiteral("New version detected. Please update now for normal use."));
    ui->labVersion->setText(VersionLine(tr("  Update Package %1M")));
    ui->laterBtn->setText(QStringLiteral("Later"));
    ui->immedBtn->setText(QStringLiteral("Update"));
    ui->checkRemid->setText(QStringLiteral("Never Prompt"));
    ui->updateText->setAccessibleName(QStringLiteral("Release notes"));
    ui->labIco->setAccessibleName(QStringLiteral("Norvane"));
}

void UpdateDialog::SetChineseTexts(bool optional)
{
    ui->labText->setText(optional ? QStringLiteral("检测到新版本，是否更新?")
                                  : QStringLiteral("检测到新版本，更新后才能正常使用，请立即更新"));
    ui->labVersion->setText(VersionLine(tr("  更新包 %1M")));
    ui->updateText->setAccessibleName(QStringLiteral("更新说明"));
    ui->labIco->setAccessibleName(QStringLiteral("Norvane"));
}

void UpdateDialog::ShowReleaseNotes()
{
    const QPointer<QTextDocument> former = ui->updateText->document();
    auto *document = new ReleaseNotesDocument(ui->updateText);
    document->setDefaultFont(former->defaultFont());
    document->SetNotes(Global::instance.latestVersionInfo);
    // Set only when it is filled. Otherwise the text cursor ends up after the notes, and Qt
    // computes the layout of the whole document at once in order to scroll there.
    ui->updateText->setDocument(document);
    delete former.data(); // null for the form's document, which the text edit has deleted
    ui->updateText->setReadOnly(true);
    ui->updateText->setTextInteractionFlags(Qt::NoTextInteraction);
}

void UpdateDialog::TakeNoMoreInput()
{
    setEnabled(false);
}

void UpdateDialog::LaterUpdate()
{
    TakeNoMoreInput();
    Global &global = Global::instance;
    if (ui->checkRemid->checkState() == Qt::Checked &&
        global.WriteConfigToFile(ConfigContract::Selector::SilencedVersion) != Global::Success) {
        QCoreApplication::quit();
        return;
    }
    global.cmdLineArgs.clear();
    global.LaunchClient();
}

void UpdateDialog::ImmediatelyUpdate()
{
    TakeNoMoreInput();
    StopRunningClient(Global::instance.appName);
    dwonDialog->SetTexts();
    dwonDialog->show();
    hide();

    const QString drive = DriveWithoutRoomForPackage();
    if (drive.isEmpty()) {
        emit getPack();
        return;
    }
    const QString message = Global::instance.IsEnglish()
                                ? tr("Disk out of space on %1, update failed.")
                                : tr("%1 磁盘空间不足，更新失败!");
    emit dwonDialog->ErrSignal(message.arg(drive));
}

void UpdateDialog::reject()
{
    close();
}

void UpdateDialog::closeEvent(QCloseEvent *)
{
    if (!isEnabled()) // already answered; the input is older than the answer
        return;
    if (Global::instance.update == Mode::Optional)
        LaterUpdate();
    else if (Global::instance.update == Mode::Forced)
        QCoreApplication::quit();
}

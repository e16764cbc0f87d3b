// SPDX-License-Identifier: MIT
#include "ui/dwondialog.h"

#include "config/global.h"
#include "ui/dialogwindow.h"
#include "ui/diskspace.h"
#include "ui/netdialog.h"
#include "ui/stylesheets.h"
#include "ui/versionline.h"
#include "ui_dwondialog.h"

#include <QCloseEvent>
#include <QCoreApplication>

namespace
{

// The button's text is its state: it decides what a press does.
const QLatin1String kCancelEnglish("Cancel");
const QLatin1String kRetryEnglish("Retry");

QString CancelChinese()
{
    return QStringLiteral("取消");
}

QString RetryChinese()
{
    return QStringLiteral("重试");
}

qint64 Percent(qint64 bytesRead, qint64 totalBytes)
{
    return totalBytes > 0 ? bytesRead * 100 / totalBytes : 0;
}

} // namespace

DwonDialog::DwonDialog(QWidget *parent)
    : QDialog(parent), ui(std::make_unique<Ui::DwonDialog>()), netDialog(new NetDialog)
{
    ui->setupUi(this);
    SetUpWindow(this, ui->labIco);
    ui->labText->setStyleSheet(StyleSheets::ProductName());
    ui->labVersion->setStyleSheet(StyleSheets::VersionLine());
    ui->labInstall->setStyleSheet(StyleSheets::PercentageLine());
    ui->progressBar->setStyleSheet(StyleSheets::ProgressBar());
    ui->cancleBtn->setStyleSheet(StyleSheets::WithoutOwnFocusMark() +
                                 StyleSheets::SecondaryButton());
    ui->dockWidget->setStyleSheet(StyleSheets::ConfirmationDock());

    ui->dockWidget->setFixedSize(199, 114);
    QWidget *const titleBar = ui->dockWidget->titleBarWidget();
    ui->dockWidget->setTitleBarWidget(new QWidget(ui->dockWidget));
    delete titleBar;
    ui->dockWidget->setWidget(netDialog);
    netDialog->OrderTabs();
    ui->dockWidget->hide();

    connect(netDialog, &NetDialog::cancleSignal, this, &DwonDialog::CloseCancleDlg);
    connect(netDialog, &NetDialog::sureSignal, this, &DwonDialog::QuitDwonThread);
    connect(ui->cancleBtn, &QPushButton::clicked, this, &DwonDialog::CancleDownload);
    connect(this, &DwonDialog::ErrSignal, this, &DwonDialog::UpdateErrorState);
}

DwonDialog::~DwonDialog() = default;

void DwonDialog::SetTexts()
{
    QString percentage = tr("正在安装中......0%");
    QString sizeTemplate = tr("  更新包 %1M");
    QString progressName = QStringLiteral("下载进度");
    if (Global::instance.IsEnglish()) {
        setWindowTitle(QStringLiteral("App Update"));
        ui->labText->setText(QStringLiteral("NORVANE"));
        ui->cancleBtn->setText(kCancelEnglish);
        percentage = tr("installing......0%");
        sizeTemplate = tr("  Update Package %1M");
        progressName = QStringLiteral("Download progress");
    }
    ui->labVersion->setText(VersionLine(sizeTemplate));
    ui->labInstall->setText(percentage);
    ui->progressBar->setValue(0);
    ui->progressBar->setMaximum(int(Global::instance.packageSize));
    ui->progressBar->setStyleSheet(StyleSheets::ProgressBar());
    ui->progressBar->setAccessibleName(progressName);
    ui->labIco->setAccessibleName(ui->labText->text());
}

void DwonDialog::UpdateProgressBar(qint64 bytesRead, qint64 totalBytes)
{
    ui->progressBar->setValue(int(bytesRead));
    // Without this, the bar is redrawn only once per block of the style and lags behind the line.
    ui->progressBar->update();
    // The line says "installing" during the download too: to the user both are one operation.
    const QString line =
        Global::instance.IsEnglish() ? tr("installing......%1%") : tr("正在安装中......%1%");
    ui->labInstall->setText(line.arg(Percent(bytesRead, totalBytes)));
}

void DwonDialog::UpdateErrorState(QString text)
{
    ui->cancleBtn->setText(Global::instance.IsEnglish() ? QString(kRetryEnglish) : RetryChinese());
    ui->cancleBtn->setStyleSheet(StyleSheets::WithoutOwnFocusMark() + StyleSheets::PrimaryButton());
    ui->labInstall->setText(text);
    ui->labInstall->setStyleSheet(StyleSheets::ErrorLine());
    ui->progressBar->setStyleSheet(StyleSheets::ProgressBarInError());
}

void DwonDialog::CancleDownload()
{
    const QString text = ui->cancleBtn->text();
    if (text == CancelChinese() || text == kCancelEnglish)
        AskToCancel();
    else if (text == RetryChinese() || text == kRetryEnglish)
        RetryDownload();
}

void DwonDialog::RetryDownload()
{
    if (!DriveWithoutRoomForPackage().isEmpty())
        return;
    emit GetPackAgain();
    ResetToNormalState();
}

void DwonDialog::ResetToNormalState()
{
    const bool english = Global::instance.IsEnglish();
    ui->cancleBtn->setStyleSheet(StyleSheets::WithoutOwnFocusMark() +
                                 StyleSheets::SecondaryButton());
    ui->labInstall->setText(english ? QStringLiteral("installing......0%")
                                    : QStringLiteral("正在安装中......0%"));
    ui->cancleBtn->setText(english ? QString(kCancelEnglish) : CancelChinese());
    ui->progressBar->setValue(0);
    ui->labInstall->setStyleSheet(StyleSheets::PercentageLineAfterRetry());
    ui->progressBar->setStyleSheet(StyleSheets::ProgressBar());
}

void DwonDialog::AskToCancel()
{
    ui->dockWidget->show();
    ui->dockWidget->raise();
    netDialog->setFocus();
}

void DwonDialog::CloseCancleDlg()
{
    ui->dockWidget->hide();
    ui->cancleBtn->setFocus();
}

void DwonDialog::QuitDwonThread()
{
    QCoreApplication::quit();
}

void DwonDialog::reject()
{
    if (ui->dockWidget->isVisible())
        CloseCancleDlg();
    else
        close();
}

void DwonDialog::closeEvent(QCloseEvent *event)
{
    AskToCancel();
    event->ignore();
}

#include "ui/netdialog.h"

#include "config/global.h"
#include "ui/sheets.h"

#include <QCoreApplication>
#include <QLabel>
#include <QPushButton>

NetDialog::NetDialog(QWidget *parent) : QDialog(parent)
{
    setObjectName(QStringLiteral("NetDialog"));
    resize(199, 114);
    setStyleSheet(Sheets::ConfirmationPanel());

    sbtn = new QPushButton(this);
    sbtn->setObjectName(QStringLiteral("sbtn"));
    sbtn->setGeometry(129, 65, 31, 20);
    sbtn->setStyleSheet(Sheets::ConfirmationButton());

    cbtn = new QPushButton(this);
    cbtn->setObjectName(QStringLiteral("cbtn"));
    cbtn->setGeometry(66, 65, 51, 20);
    cbtn->setStyleSheet(Sheets::ConfirmationButton());
    cbtn->setDefault(true);

    lab = new QLabel(this);
    lab->setObjectName(QStringLiteral("lab"));
    lab->setGeometry(30, 30, 141, 21);
    lab->setStyleSheet(Sheets::ConfirmationQuestion());

    setWindowTitle(tr("Dialog"));
    lab->setText(tr("确定取消更新?"));
    cbtn->setText(tr("取消"));
    sbtn->setText(tr("确定"));
    QMetaObject::connectSlotsByName(this);

    setWindowFlags(windowFlags() | Qt::FramelessWindowHint);
    setTabOrder(cbtn, sbtn);

    connect(cbtn, &QPushButton::clicked, this, &NetDialog::cancleSignal);
    connect(sbtn, &QPushButton::clicked, this, &NetDialog::sureSignal);

    if (Global::instance.IsEnglish()) {
        lab->setText(QStringLiteral("Update Cancel?"));
        cbtn->setText(QStringLiteral("Cancel"));
        sbtn->setText(QStringLiteral("OK"));
    }
    setAccessibleName(lab->text());
}

void NetDialog::reject()
{
    emit cancleSignal();
}

void NetDialog::closeEvent(QCloseEvent *)
{
    QCoreApplication::quit();
}

// SPDX-License-Identifier: MIT
#include "ui/netdialog.h"

#include "config/global.h"
#include "ui/stylesheets.h"

#include <QCoreApplication>
#include <QKeyEvent>
#include <QLabel>
#include <QPushButton>

NetDialog::NetDialog(QWidget *parent) : QDialog(parent)
{
    setObjectName(QStringLiteral("NetDialog"));
    resize(199, 114);
    setStyleSheet(StyleSheets::ConfirmationPanel());

    sbtn = new QPushButton(this);
    sbtn->setObjectName(QStringLiteral("sbtn"));
    sbtn->setGeometry(129, 65, 31, 20);
    sbtn->setStyleSheet(StyleSheets::ConfirmationButton());

    cbtn = new QPushButton(this);
    cbtn->setObjectName(QStringLiteral("cbtn"));
    cbtn->setGeometry(66, 65, 51, 20);
    cbtn->setStyleSheet(StyleSheets::ConfirmationButton());

    lab = new QLabel(this);
    lab->setObjectName(QStringLiteral("lab"));
    lab->setGeometry(30, 30, 141, 21);
    lab->setStyleSheet(StyleSheets::ConfirmationQuestion());

    setWindowTitle(tr("Dialog"));
    lab->setText(tr("确定取消更新?"));
    cbtn->setText(tr("取消"));
    sbtn->setText(tr("确定"));
    QMetaObject::connectSlotsByName(this);

    setWindowFlags(windowFlags() | Qt::FramelessWindowHint);

    connect(cbtn, &QPushButton::clicked, this, &NetDialog::cancleSignal);
    connect(sbtn, &QPushButton::clicked, this, &NetDialog::sureSignal);

    if (Global::instance.IsEnglish()) {
        lab->setText(QStringLiteral("Update Cancel?"));
        cbtn->setText(QStringLiteral("Cancel"));
        sbtn->setText(QStringLiteral("OK"));
    }
    setAccessibleName(lab->text());
}

void NetDialog::OrderTabs()
{
    setTabOrder(cbtn, sbtn);
}

void NetDialog::reject()
{
    emit cancleSignal();
}

void NetDialog::keyPressEvent(QKeyEvent *event)
{
    // A default button cannot do this: a window has only one, and it belongs to the progress
    // dialog.
    if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter)
        cbtn->click();
    else
        QDialog::keyPressEvent(event);
}

void NetDialog::closeEvent(QCloseEvent *)
{
    QCoreApplication::quit();
}

// SPDX-License-Identifier: MIT
#pragma once

#include <QDialog>

class QLabel;
class QPushButton;

/**
 * Asks whether to cancel the update, as a panel inside the progress dialog. It only emits signals;
 * its owner acts on them. GUI thread.
 */
class NetDialog : public QDialog
{
    Q_OBJECT

public:
    explicit NetDialog(QWidget *parent = nullptr);

    /// Makes Tab visit the buttons in reading order. To be called once the panel is in its window,
    /// because moving it there changes the order.
    void OrderTabs();

    /// Esc keeps the update going, as "Cancel" does.
    void reject() override;

signals:
    /// "Cancel" pressed: the update goes on.
    void cancleSignal();

    /// "OK" pressed: the update is to be cancelled.
    void sureSignal();

protected:
    /// Enter keeps the update going too, unless a button has the focus.
    void keyPressEvent(QKeyEvent *event) override;

    /// Closing the panel itself ends the program.
    void closeEvent(QCloseEvent *event) override;

private:
    QPushButton *sbtn;
    QPushButton *cbtn;
    QLabel *lab;
};

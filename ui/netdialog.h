#pragma once

#include <QDialog>

class QLabel;
class QPushButton;

/**
 * The question whether to cancel the update, a panel inside the progress dialog. It decides
 * nothing: its owner does what the signals ask for. GUI thread.
 */
class NetDialog : public QDialog
{
    Q_OBJECT

public:
    explicit NetDialog(QWidget *parent = nullptr);

    /// Esc keeps the update going, as "Cancel" does.
    void reject() override;

signals:
    /// "Cancel" pressed: the update goes on.
    void cancleSignal();

    /// "OK" pressed: the update is to be cancelled.
    void sureSignal();

protected:
    /// Closing the panel itself ends the program.
    void closeEvent(QCloseEvent *event) override;

private:
    QPushButton *sbtn;
    QPushButton *cbtn;
    QLabel *lab;
};

#include "ui/dialogwindow.h"

#include "ui/sheets.h"

#include <QApplication>
#include <QDialog>
#include <QFocusFrame>
#include <QIcon>
#include <QLabel>

namespace
{

/// Frames what has the focus in the dialog, once the user moves it with the keyboard.
void FrameFocus(QDialog *dialog)
{
    auto *frame = new QFocusFrame(dialog);
    frame->setStyleSheet(Sheets::FocusFrame());
    frame->hide();
    // Ends with the frame: as the dialog is destroyed, its children go first, and the focus with
    // them.
    QObject::connect(qApp, &QApplication::focusChanged, frame,
                     [dialog, frame](QWidget *, QWidget *now) {
                         // As on Windows: those who never press Tab see no frame.
                         const bool framed = now != nullptr && dialog->isAncestorOf(now) &&
                                             now->focusPolicy() != Qt::NoFocus &&
                                             dialog->testAttribute(Qt::WA_KeyboardFocusChange);
                         frame->setWidget(framed ? now : nullptr);
                     });
}

} // namespace

void SetUpWindow(QDialog *dialog, QLabel *logo)
{
    dialog->setWindowFlags(Qt::WindowCloseButtonHint);
    dialog->setWindowIcon(QIcon(QStringLiteral(":/image/resourceimg/logo.ico")));
    dialog->setFixedSize(dialog->size());
    dialog->setStyleSheet(Sheets::Window(dialog->objectName()));
    logo->setStyleSheet(Sheets::Logo());
    FrameFocus(dialog);
}

// SPDX-License-Identifier: MIT
#include "ui/dialogwindow.h"

#include "ui/stylesheets.h"

#include <QApplication>
#include <QDialog>
#include <QFocusFrame>
#include <QIcon>
#include <QLabel>

namespace
{

/// Draws a frame around the widget that has the focus, once the user has moved it with the
/// keyboard.
void FrameFocus(QDialog *dialog)
{
    auto *frame = new QFocusFrame(dialog);
    frame->setStyleSheet(StyleSheets::FocusFrame());
    frame->hide();
    // The connection ends with the frame: while the dialog is destroyed, its children are deleted
    // and the focus changes.
    QObject::connect(qApp, &QApplication::focusChanged, frame,
                     [dialog, frame](QWidget *, QWidget *now) {
                         // As on Windows: users who never press Tab see no frame.
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
    dialog->setStyleSheet(StyleSheets::Window(dialog->objectName()));
    logo->setStyleSheet(StyleSheets::Logo());
    FrameFocus(dialog);
}

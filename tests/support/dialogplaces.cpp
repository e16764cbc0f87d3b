// SPDX-License-Identifier: MIT
#include "tests/support/dialogplaces.h"

#include "ui/dwondialog.h"
#include "ui/updatedialog.h"

#include <QAbstractButton>
#include <QCheckBox>
#include <QDockWidget>
#include <QLabel>
#include <QStyleOptionButton>

namespace
{

/// In the button's own pixels. A check box is wider than the part of it that reacts to the mouse.
QPoint PlaceToPress(const QAbstractButton *button)
{
    if (qobject_cast<const QCheckBox *>(button) == nullptr)
        return button->rect().center();
    QStyleOptionButton option;
    option.initFrom(button);
    return button->style()->subElementRect(QStyle::SE_CheckBoxIndicator, &option, button).center();
}

void AddButtons(QDialog *dialog, QMap<QString, QPoint> &places)
{
    const auto buttons = dialog->findChildren<QAbstractButton *>();
    for (const QAbstractButton *button : buttons)
        places.insert(button->objectName(), button->mapTo(dialog, PlaceToPress(button)));
}

/// Layouts only place the widgets of a dialog that is shown.
void LayOut(QDialog *dialog)
{
    dialog->setAttribute(Qt::WA_DontShowOnScreen);
    dialog->show();
}

} // namespace

DialogPlaces PlacesInDialogs()
{
    UpdateDialog prompt;
    QDialog *progress = prompt.ProgressDialog();
    LayOut(&prompt);
    LayOut(progress);
    auto *panel = progress->findChild<QDockWidget *>();
    panel->show();

    DialogPlaces places;
    places.window = prompt.size();
    AddButtons(&prompt, places.buttons);
    AddButtons(progress, places.buttons);
    const auto *question = panel->widget()->findChild<QLabel *>();
    places.question = QRect(question->mapTo(progress, QPoint()), question->size());
    return places;
}

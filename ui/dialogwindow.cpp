#include "ui/dialogwindow.h"

#include "ui/sheets.h"

#include <QDialog>
#include <QIcon>
#include <QLabel>

void SetUpWindow(QDialog *dialog, QLabel *logo)
{
    dialog->setWindowFlags(Qt::WindowCloseButtonHint);
    dialog->setWindowIcon(QIcon(QStringLiteral(":/image/resourceimg/logo.ico")));
    dialog->setFixedSize(dialog->size());
    dialog->setStyleSheet(Sheets::Window(dialog->objectName()));
    logo->setStyleSheet(Sheets::Logo());
}

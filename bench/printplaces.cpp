// SPDX-License-Identifier: MIT
// Prints the size of the updater's dialogs and where to press each of their buttons, at 100 %: one
// per line, "window WIDTH HEIGHT" or "NAME X Y". For scripts that press the buttons.

#include "tests/support/dialogplaces.h"

#include <QApplication>
#include <QTextStream>

int main(int argc, char *argv[])
{
    const QApplication application(argc, argv);
    const DialogPlaces places = PlacesInDialogs();
    QTextStream out(stdout);
    out << "window " << places.window.width() << ' ' << places.window.height() << '\n';
    for (auto place = places.buttons.cbegin(); place != places.buttons.cend(); ++place)
        out << place.key() << ' ' << place->x() << ' ' << place->y() << '\n';
    return 0;
}

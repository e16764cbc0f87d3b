// SPDX-License-Identifier: MIT
#pragma once

#include <QMap>
#include <QPoint>
#include <QRect>
#include <QSize>
#include <QString>

/// Where things are in the updater's dialogs, in pixels from the upper left corner at 100 %.
struct DialogPlaces {
    QSize window;                  ///< the size of each dialog
    QMap<QString, QPoint> buttons; ///< where to press, by the button's object name
    QRect question;                ///< the text of the question whether to cancel
};

/**
 * Builds the updater's own dialogs, without showing them on the screen, and looks where their
 * widgets are. Needs a QApplication. GUI thread.
 */
DialogPlaces PlacesInDialogs();

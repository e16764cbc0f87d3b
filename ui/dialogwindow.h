#pragma once

class QDialog;
class QLabel;

/**
 * Makes a dialog whose form is set up the window that all of the updater's windows are: a close
 * button and no other, the product's icon, white, of the form's size, with the logo in @p logo and
 * a frame around what has the keyboard's focus. GUI thread.
 */
void SetUpWindow(QDialog *dialog, QLabel *logo);

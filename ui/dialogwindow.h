// SPDX-License-Identifier: MIT
#pragma once

class QDialog;
class QLabel;

/**
 * Gives @p dialog the look that all windows of the updater share: no button but the close button,
 * the product's icon, a white background, the fixed size of the form, the logo in @p logo, and a
 * frame around the widget that has the keyboard's focus. To be called when the form is set up. GUI
 * thread.
 */
void SetUpWindow(QDialog *dialog, QLabel *logo);

// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

/**
 * The style sheets of the dialogs. The forms contain only the geometry and the texts. GUI thread.
 */
namespace StyleSheets
{

/// The white background of the dialog with the object name @p dialogName, but not of its children.
inline QString Window(const QString &dialogName)
{
    return QStringLiteral("#%1{background-color:rgb(255, 255, 255);}").arg(dialogName);
}

inline QString Logo()
{
    return QStringLiteral("QLabel{image:url(:/image/resourceimg/logo.ico);}");
}

/// The Chinese headline of the prompt.
inline QString PromptHeadline()
{
    return QStringLiteral(
        "QLabel{font-size:16px;font-weight:500;color:rgba(32,49,82,1);line-height:20px;}");
}

inline QString EnglishPromptHeadline()
{
    return QStringLiteral(
        "QLabel{font-size:16px;font-weight:500;color:rgba(32,49,82,1);line-height:22px;;}");
}

/// Smaller than the others, because this headline is the longest.
inline QString EnglishForcedPromptHeadline()
{
    return QStringLiteral(
        "QLabel{font-size:12px;font-weight:500;color:rgba(32,49,82,1);line-height:22px;;}");
}

/// The product's name in the progress dialog.
inline QString ProductName()
{
    return QStringLiteral(
        "QLabel{font-size:16px;font-weight:500;color:rgba(32,49,82,1);line-height:22px;}");
}

/// The version and the size of the package, in both dialogs.
inline QString VersionLine()
{
    return QStringLiteral(
        "QLabel{font-size:14px;font-weight:400;color:rgba(143,152,168,1);line-height:22px;}");
}

inline QString NotesText()
{
    return QStringLiteral("QTextEdit{font-size:12px;font-weight:400;line-height:18px;"
                          "color:rgba(77,90,117,1);background-color:rgba(255,255,255,1);"
                          "border:1px solid rgba(210,214,220,1);border-radius:2px;}");
}

inline QString NotesScrollBar()
{
    return QStringLiteral(
        "QScrollBar:vertical{width:4px;background:rgb(255,255,255);border:none;}"
        "QScrollBar::handle:vertical{background:rgba(32,49,82,0.1);border:none;border-radius:2px;}"
        "QScrollBar::add-line:vertical,QScrollBar::sub-line:vertical{background:rgb(255,255,255);"
        "border:none;height:0px;}"
        "QScrollBar::add-page:vertical,QScrollBar::sub-page:vertical{background:rgb(255,255,255);"
        "}");
}

inline QString NeverPromptCheckBox()
{
    return QStringLiteral(
        "QCheckBox{font-size:14px;font-weight:400;color:rgba(143,152,168,1);line-height:20px;}"
        "QCheckBox::indicator{width:16px;height:16px;}"
        "QCheckBox::indicator:checked{image:url(:/image/resourceimg/check.png);}");
}

/// A white button.
inline QString SecondaryButton()
{
    return QStringLiteral(
        "QPushButton{font-size:14px;font-weight:400;line-height:20px;color:rgba(32,49,82,1);"
        "background-color:rgba(255,255,255,1);border:1px solid rgba(32,49,82,0.2);"
        "border-radius:4px;}"
        "QPushButton:hover{border:1px solid rgba(66,133,246,1);}"
        "QPushButton:pressed{color:rgba(66,133,246,1);border:1px solid rgba(66,133,246,1);}");
}

/// A blue button of 100 x 36 pixels with a gradient at 133 degrees. The gradient's coordinates are
/// fractions of the button's width and height, so they compensate for their ratio.
inline QString PrimaryButton()
{
    return QStringLiteral(
        "QPushButton{font-size:14px;font-weight:400;line-height:20px;color:rgba(255,255,255,1);"
        "background-color:rgba(66,133,246,1);border-radius:4px;"
        "background:qlineargradient(spread:pad,x1:-0.1002,y1:0.2985,x2:1.1002,y2:0.7015,"
        "stop:0 rgba(50,122,255,1),stop:1 rgba(104,157,243,1));}"
        "QPushButton:hover{background:rgba(85,145,246,1);border:none;}"
        "QPushButton:pressed{background:rgba(62,124,228,1);border:none;}");
}

/// Goes before the sheet of a widget that gets a FocusFrame() instead of Qt's own mark.
inline QString WithoutOwnFocusMark()
{
    return QStringLiteral("*{outline:none;}");
}

/// The frame around the widget that has the keyboard's focus.
inline QString FocusFrame()
{
    return QStringLiteral("QFocusFrame{border:1px solid rgba(66,133,246,1);border-radius:4px;}");
}

/// The line with the percentage, while the first download runs.
inline QString PercentageLine()
{
    return QStringLiteral(
        "QLabel{font-size:14px;font-weight:400;color:rgba(32,49,82,1);line-height:22px;}");
}

/// The same line once the user has retried.
inline QString PercentageLineAfterRetry()
{
    return QStringLiteral("color:black;");
}

/// The same line while it shows an error.
inline QString ErrorLine()
{
    return QStringLiteral("color:rgba(250,81,81,1);");
}

inline QString ProgressBar()
{
    return QStringLiteral(
        "QProgressBar{background-color:rgba(217,231,253,1);border-radius:4px;}"
        "QProgressBar::chunk{background-color:rgba(66,133,246,1);border-radius:4px;}");
}

inline QString ProgressBarInError()
{
    return QStringLiteral(
        "QProgressBar{background-color:rgba(250,81,81,0.1);border-radius:4px;}"
        "QProgressBar::chunk{background-color:rgba(250,81,81,1);border-radius:4px;}");
}

/// The dock widget that contains the cancel confirmation.
inline QString ConfirmationDock()
{
    return QStringLiteral("QDockWidget{background-color:rgb(148, 148, 148);}");
}

inline QString ConfirmationPanel()
{
    return QStringLiteral("#NetDialog{background-color:rgba(255, 255, 255,0);"
                          "background-image:url(:/image/resourceimg/cancle.png);"
                          "background-repeat:no-repeat;}");
}

inline QString ConfirmationQuestion()
{
    return QStringLiteral("QLabel{font-size:16px;font-weight:500;color:rgba(32,49,82,1);"
                          "line-height:22px;background-color:rgba(255, 255, 255,0);}");
}

inline QString ConfirmationButton()
{
    return QStringLiteral(
        "QPushButton{width:28px;height:20px;border:none;outline:none;font-size:14px;"
        "font-weight:400;color:rgba(32,49,82,0.5);line-height:20px;background-color:rgb(255, 255, "
        "255);}"
        "QPushButton:hover{color:rgba(66,133,246,1);}"
        "QPushButton:pressed{color:rgba(52,108,197,1);}");
}

} // namespace StyleSheets

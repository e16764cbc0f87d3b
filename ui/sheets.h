#pragma once

#include <QString>

/**
 * The style sheets of the dialogs. Each look stands here once; the forms carry geometry and texts
 * only. GUI thread.
 */
namespace Sheets
{

/// White window of the dialog with the object name @p dialogName; its children keep their own.
inline QString Window(const QString &dialogName)
{
    return QStringLiteral("#%1{background-color:rgb(255, 255, 255);}").arg(dialogName);
}

inline QString Logo()
{
    return QStringLiteral("QLabel{image:url(:/image/resourceimg/logo.ico);}");
}

/// Headline of the prompt, as the form sets it.
inline QString Headline()
{
    return QStringLiteral(
        "QLabel{font-size:16px;font-weight:500;color:rgba(32,49,82,1);line-height:20px;}");
}

inline QString EnglishHeadline()
{
    return QStringLiteral(
        "QLabel{font-size:16px;font-weight:500;color:rgba(32,49,82,1);line-height:22px;;}");
}

/// The English headline of the forced prompt is the longest of all and needs a smaller font.
inline QString EnglishForcedHeadline()
{
    return QStringLiteral(
        "QLabel{font-size:12px;font-weight:500;color:rgba(32,49,82,1);line-height:22px;;}");
}

/// Product name in the progress dialog.
inline QString ProductName()
{
    return QStringLiteral(
        "QLabel{font-size:16px;font-weight:500;color:rgba(32,49,82,1);line-height:22px;}");
}

inline QString Version()
{
    return QStringLiteral(
        "QLabel{font-size:14px;font-weight:400;color:rgba(143,152,168,1);line-height:22px;}");
}

inline QString ReleaseNotes()
{
    return QStringLiteral("QTextEdit{font-size:12px;font-weight:400;line-height:18px;"
                          "color:rgba(77,90,117,1);background-color:rgba(255,255,255,1);"
                          "border:1px solid rgba(210,214,220,1);border-radius:2px;}");
}

inline QString ReleaseNotesScrollBar()
{
    return QStringLiteral(
        "QScrollBar:vertical{width:4px;background:rgb(255,255,255);border:none;}"
        "QScrollBar::handle:vertical{background:rgba(32,49,82,0.1);border:none;border-radius:2px;}"
        "QScrollBar::add-line:vertical,QScrollBar::sub-line:vertical{background:rgb(255,255,255);"
        "border:none;height:0px;}"
        "QScrollBar::add-page:vertical,QScrollBar::sub-page:vertical{background:rgb(255,255,255);"
        "}");
}

inline QString NeverPrompt()
{
    return QStringLiteral(
        "QCheckBox{font-size:14px;font-weight:400;color:rgba(143,152,168,1);line-height:20px;}"
        "QCheckBox::indicator{width:16px;height:16px;}"
        "QCheckBox::indicator:checked{image:url(:/image/resourceimg/check.png);}");
}

/// White button.
inline QString SecondaryButton()
{
    return QStringLiteral(
        "QPushButton{font-size:14px;font-weight:400;line-height:20px;color:rgba(32,49,82,1);"
        "background-color:rgba(255,255,255,1);border:1px solid rgba(32,49,82,0.2);"
        "border-radius:4px;}"
        "QPushButton:hover{border:1px solid rgba(66,133,246,1);}"
        "QPushButton:pressed{color:rgba(66,133,246,1);border:1px solid rgba(66,133,246,1);}");
}

/// Blue button. The gradient runs at 133 degrees over the 100 x 36 pixels of the button; its ends
/// are in units of the button's sides, which skew it unless they make up for that.
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

/// To stand before the sheet of a widget that a FocusFrame() is put around.
inline QString NoFocusOfItsOwn()
{
    return QStringLiteral("*{outline:none;}");
}

/// Lies around the widget, so that what the widget shows stays as it is.
inline QString FocusFrame()
{
    return QStringLiteral("QFocusFrame{border:1px solid rgba(66,133,246,1);border-radius:4px;}");
}

inline QString Percentage()
{
    return QStringLiteral(
        "QLabel{font-size:14px;font-weight:400;color:rgba(32,49,82,1);line-height:22px;}");
}

inline QString PercentageAgain()
{
    return QStringLiteral("color:black;");
}

inline QString ErrorText()
{
    return QStringLiteral("color:rgba(250,81,81,1);");
}

inline QString ProgressBar()
{
    return QStringLiteral(
        "QProgressBar{background-color:rgba(217,231,253,1);border-radius:4px;}"
        "QProgressBar::chunk{background-color:rgba(66,133,246,1);border-radius:4px;}");
}

inline QString FailedProgressBar()
{
    return QStringLiteral(
        "QProgressBar{background-color:rgba(250,81,81,0.1);border-radius:4px;}"
        "QProgressBar::chunk{background-color:rgba(250,81,81,1);border-radius:4px;}");
}

inline QString ConfirmationHolder()
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
        "QPushButton{width:28px;height:20px;border:none;outline:none;font-size:14px;font-weight:"
        "400;"
        "color:rgba(32,49,82,0.5);line-height:20px;background-color:rgb(255, 255, 255);}"
        "QPushButton:hover{color:rgba(66,133,246,1);}"
        "QPushButton:pressed{color:rgba(52,108,197,1);}");
}

} // namespace Sheets

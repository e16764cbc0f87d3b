// SPDX-License-Identifier: MIT
#pragma once

#include "config/global.h"

#include <QAccessible>
#include <QApplication>
#include <QColor>
#include <QIcon>
#include <QImage>
#include <QMetaMethod>
#include <QMouseEvent>
#include <QStringList>
#include <QTest>
#include <QTimer>
#include <QTranslator>
#include <QWidget>

#include <cstdlib>
#include <functional>

/// The descendant of that class and object name; fails the program when there is none.
template <class Widget> Widget *Child(const QWidget &dialog, const char *name)
{
    auto *child = dialog.findChild<Widget *>(QLatin1String(name));
    if (child == nullptr)
        qFatal("no %s in the dialog", name);
    return child;
}

/// Shows @p panel without its children on @p backdrop, which gets that colour.
inline void ShowOnBackdrop(QWidget &panel, const QRect &place, QWidget &backdrop,
                           const QString &colour)
{
    backdrop.resize(400, 240);
    backdrop.setStyleSheet(QStringLiteral("background-color:%1;").arg(colour));
    panel.setParent(&backdrop, Qt::Widget);
    panel.setGeometry(place);
    for (QWidget *child : panel.findChildren<QWidget *>())
        child->hide();
    backdrop.show();
}

/// The place of a descendant in the dialog, in pixels.
inline QRect PlaceIn(const QWidget &dialog, const QWidget &child)
{
    return QRect(child.mapTo(&dialog, QPoint(0, 0)), child.size());
}

/// The text for the current language.
inline QString InLanguage(const char *english, const char *chinese)
{
    const bool wantsEnglish = Global::instance.language == QLatin1String("en");
    return QString::fromUtf8(wantsEnglish ? english : chinese);
}

/// The flags of a window with only the close button in its title bar.
inline Qt::WindowFlags FlagsOfClosableWindow()
{
    QWidget window;
    window.setWindowFlags(Qt::WindowCloseButtonHint);
    return window.windowFlags();
}

/// Whether the window's icon is the product's logo.
inline bool HasLogoAsIcon(const QWidget &window)
{
    constexpr int side = 32;
    const QImage logo =
        QIcon(QStringLiteral(":/image/resourceimg/logo.ico")).pixmap(side).toImage();
    return !logo.isNull() && window.windowIcon().pixmap(side).toImage() == logo;
}

/// The name of the widget for screen readers.
inline QString AccessibleName(QWidget *widget)
{
    QAccessibleInterface *interface = QAccessible::queryAccessibleInterface(widget);
    return interface == nullptr ? QString() : interface->text(QAccessible::Name);
}

/// Shows the dialog and waits until it has the keyboard.
inline bool ShowActive(QWidget &dialog)
{
    dialog.show();
    dialog.activateWindow();
    return QTest::qWaitForWindowActive(&dialog);
}

/// Presses Tab until the first widget has the focus again; returns the object names in this order.
inline QStringList TabRound(QWidget &dialog)
{
    QStringList names;
    QWidget *const first = dialog.focusWidget();
    do {
        names.append(dialog.focusWidget()->objectName());
        QTest::keyClick(dialog.focusWidget(), Qt::Key_Tab);
    } while (dialog.focusWidget() != first && names.size() < 20);
    return names;
}

/// Adds the columns of a table of style sheet properties.
inline void AddStyleColumns()
{
    QTest::addColumn<QByteArray>("widget");
    QTest::addColumn<QString>("selector");
    QTest::addColumn<QString>("property");
    QTest::addColumn<QString>("value");
}

/// Adds a row to such a table.
inline void AddStyle(const char *widget, const char *selector, const char *property,
                     const char *value)
{
    QTest::addRow("%s %s %s", widget, selector, property)
        << QByteArray(widget) << QString::fromLatin1(selector) << QString::fromLatin1(property)
        << QString::fromLatin1(value);
}

/// The signals and slots that a class declares, in their order, as "signal name(types)".
inline QStringList OwnMethods(const QMetaObject &metaObject)
{
    QStringList methods;
    for (int i = metaObject.methodOffset(); i < metaObject.methodCount(); ++i) {
        const QMetaMethod method = metaObject.method(i);
        const bool isSignal = method.methodType() == QMetaMethod::Signal;
        methods.append(QLatin1String(isSignal ? "signal " : "slot ") +
                       QString::fromLatin1(method.methodSignature()));
    }
    return methods;
}

/// Runs @p action in the application's event loop; true when the application quits, at once or by a
/// posted event.
inline bool Quits(const std::function<void()> &action)
{
    constexpr int stillRunning = 78;
    int rounds = 0;
    QTimer afterwards;
    QObject::connect(&afterwards, &QTimer::timeout, [&] {
        if (++rounds == 5)
            QCoreApplication::exit(stillRunning);
    });
    QTimer::singleShot(0, [&] {
        action();
        afterwards.start(0);
    });
    return QCoreApplication::exec() != stillRunning;
}

/// Queues clicks on the widget, as an impatient user does while the program is busy.
inline void QueueClicks(QWidget *widget, int count)
{
    for (int i = 0; i < count; ++i)
        for (const QEvent::Type type : {QEvent::MouseButtonPress, QEvent::MouseButtonRelease}) {
            const bool down = type == QEvent::MouseButtonPress;
            QCoreApplication::postEvent(
                widget, new QMouseEvent(type, widget->rect().center(), Qt::LeftButton,
                                        down ? Qt::LeftButton : Qt::NoButton, Qt::NoModifier));
        }
}

/// The last value of the property under the selector in a style sheet, without white space. The
/// empty selector stands for a sheet without selectors.
inline QString Declared(const QString &sheet, const QString &selector, const QString &property)
{
    QString text = sheet;
    text.remove(QRegExp(QStringLiteral("\\s")));
    if (selector.isEmpty())
        text = QStringLiteral("{%1}").arg(text);

    QString value;
    const auto blocks = text.split(QLatin1Char('}'));
    for (const QString &block : blocks) {
        const QStringList selectors = block.section(QLatin1Char('{'), 0, 0).split(QLatin1Char(','));
        if (!selectors.contains(selector))
            continue;
        const auto declarations = block.section(QLatin1Char('{'), 1).split(QLatin1Char(';'));
        for (const QString &declaration : declarations)
            if (declaration.section(QLatin1Char(':'), 0, 0) == property)
                value = declaration.section(QLatin1Char(':'), 1);
    }
    return value;
}

/// A picture of the widget, including what is visible through it and what covers it.
inline QImage Picture(QWidget &widget)
{
    QWidget *const window = widget.window();
    const QRect place(widget.mapTo(window, QPoint(0, 0)), widget.size());
    return window->grab(place).toImage().convertToFormat(QImage::Format_RGB32);
}

/// A picture of the widget with the mouse over it.
inline QImage PictureUnderMouse(QWidget &widget)
{
    widget.setAttribute(Qt::WA_UnderMouse, true);
    // A button needs a move event too. It is sent directly, because a test must not use the real
    // mouse.
    QMouseEvent move(QEvent::MouseMove, widget.rect().center(), Qt::NoButton, Qt::NoButton,
                     Qt::NoModifier);
    QCoreApplication::sendEvent(&widget, &move);
    const QImage picture = Picture(widget);
    widget.setAttribute(Qt::WA_UnderMouse, false);
    return picture;
}

/// A picture of the widget while it is pressed; this does not click it.
inline QImage PictureWhilePressed(QWidget &widget)
{
    QTest::mousePress(&widget, Qt::LeftButton);
    const QImage picture = PictureUnderMouse(widget);
    QTest::mouseRelease(&widget, Qt::LeftButton, Qt::NoModifier, QPoint(-20, -20));
    return picture;
}

/// True when no channel differs by more than @p tolerance.
inline bool IsNear(const QColor &seen, const QColor &wanted, int tolerance = 3)
{
    return std::abs(seen.red() - wanted.red()) <= tolerance &&
           std::abs(seen.green() - wanted.green()) <= tolerance &&
           std::abs(seen.blue() - wanted.blue()) <= tolerance;
}

/// Whether a pixel of the picture has that colour.
inline bool Shows(const QImage &picture, const QColor &wanted, int tolerance = 3)
{
    for (int y = 0; y < picture.height(); ++y)
        for (int x = 0; x < picture.width(); ++x)
            if (IsNear(picture.pixelColor(x, y), wanted, tolerance))
                return true;
    return false;
}

/// Marks every translated text: "[Context|text]".
class MarkingTranslator : public QTranslator
{
public:
    MarkingTranslator() { QCoreApplication::installTranslator(this); }
    ~MarkingTranslator() override { QCoreApplication::removeTranslator(this); }
    Q_DISABLE_COPY(MarkingTranslator)

    bool isEmpty() const override { return false; }
    QString translate(const char *context, const char *text, const char *, int) const override
    {
        return QStringLiteral("[%1|%2]").arg(QLatin1String(context), QString::fromUtf8(text));
    }
};

#define VERIFY_COLOUR(seen, wanted)                                                                \
    QVERIFY2(                                                                                      \
        IsNear((seen), (wanted)),                                                                  \
        qPrintable(                                                                                \
            QStringLiteral("seen %1, wanted %2").arg(QColor(seen).name(), QColor(wanted).name())))

// SPDX-License-Identifier: MIT
/*
 * The part of WindowWatch that runs in the watched program: a generic plugin of Qt. The environment
 * variable WINDOW_WATCH names its file FILE.
 *
 * Whenever the visible windows, labels or buttons change, FILE gets a line of JSON:
 *     {"WINDOW": {"WIDGET": "text", ...}, ...}
 * with object names; {} when no window is left.
 *
 * FILE.press holds the object name of a button to press or of a window to close. The file is
 * removed once that is done.
 */
#include <QAbstractButton>
#include <QApplication>
#include <QFile>
#include <QGenericPlugin>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QTimer>

#include <utility>

namespace
{

constexpr int kLookEveryMs = 20;

class Watcher : public QObject
{
public:
    explicit Watcher(QString file) : m_file(std::move(file))
    {
        connect(&m_timer, &QTimer::timeout, this, [this] {
            Look();
            Press();
        });
        m_timer.start(kLookEveryMs);
        connect(qApp, &QCoreApplication::aboutToQuit, this, &Watcher::Look);
        qApp->installEventFilter(this);
    }

    bool eventFilter(QObject *watched, QEvent *event) override
    {
        // A window may be shown and changed between two ticks.
        if (event->type() == QEvent::Show && watched->isWidgetType() &&
            static_cast<QWidget *>(watched)->isWindow())
            Look();
        return QObject::eventFilter(watched, event);
    }

private:
    template <class Widget> static void AddTexts(const QWidget &window, QJsonObject &texts)
    {
        const auto widgets = window.findChildren<Widget *>();
        for (const Widget *widget : widgets) {
            if (widget->isVisible() && !widget->text().isEmpty())
                texts.insert(widget->objectName(), widget->text());
        }
    }

    void Look()
    {
        QJsonObject windows;
        const auto all = QApplication::topLevelWidgets();
        for (const QWidget *window : all) {
            if (!window->isVisible())
                continue;
            QJsonObject texts;
            AddTexts<QLabel>(*window, texts);
            AddTexts<QAbstractButton>(*window, texts);
            windows.insert(window->objectName(), texts);
        }
        if (windows == m_seen)
            return;
        m_seen = windows;
        QFile file(m_file);
        if (file.open(QIODevice::Append))
            file.write(QJsonDocument(windows).toJson(QJsonDocument::Compact) + '\n');
    }

    void Press() const
    {
        QFile order(m_file + QStringLiteral(".press"));
        if (!order.open(QIODevice::ReadOnly))
            return;
        const QString name = QString::fromLatin1(order.readAll());
        order.close();
        const auto all = QApplication::topLevelWidgets();
        for (QWidget *window : all) {
            if (!window->isVisible())
                continue;
            auto *button = window->findChild<QAbstractButton *>(name);
            const bool hasButton = button != nullptr && button->isVisible() && button->isEnabled();
            if (!hasButton && window->objectName() != name)
                continue;
            order.remove();
            if (hasButton)
                button->click();
            else
                window->close();
            return;
        }
    }

    const QString m_file;
    QTimer m_timer;
    QJsonObject m_seen;
};

} // namespace

class WindowWatchPlugin : public QGenericPlugin
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID QGenericPluginFactoryInterface_iid FILE "windowwatch.json")

public:
    QObject *create(const QString &, const QString &) override
    {
        return new Watcher(QFile::decodeName(qgetenv("WINDOW_WATCH")));
    }
};

#include "windowwatch_plugin.moc"

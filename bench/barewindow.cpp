// What the updater is measured against: the least that a program of this framework with a window
// can be. It says when its window is drawn, and ends; with --stay it goes on. With --text there is
// a word in the window, as in nearly all others.

#include <QApplication>
#include <QPainter>
#include <QTimer>
#include <QWidget>

#include <cstdio>

namespace
{

class BareWindow : public QWidget
{
protected:
    void paintEvent(QPaintEvent *) override
    {
        const QStringList arguments = QCoreApplication::arguments();
        if (arguments.contains(QStringLiteral("--text")))
            QPainter(this).drawText(rect(), Qt::AlignCenter, QStringLiteral("text"));
        std::puts("drawn");
        std::fflush(stdout);
        if (!arguments.contains(QStringLiteral("--stay")))
            QTimer::singleShot(0, qApp, &QCoreApplication::quit);
    }
};

} // namespace

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    BareWindow window;
    window.resize(480, 290);
    window.show();
    return QApplication::exec();
}

// What the updater's start is measured against: the least that a program of this framework with a
// window can be. It says when its window is drawn, and ends.

#include <QApplication>
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
        std::puts("drawn");
        std::fflush(stdout);
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

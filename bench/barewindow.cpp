// What the updater at rest is measured against: the least that a Qt program with a window can be.
// It says when its window is drawn, and stays.

#include <QApplication>
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

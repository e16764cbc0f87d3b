// SPDX-License-Identifier: MIT
// The program that the idle updater is compared with: a minimal Qt program with one window. It
// prints a line when the window has been drawn, and keeps running.

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

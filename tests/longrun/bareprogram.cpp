// SPDX-License-Identifier: MIT
/// Shows an empty window and ends: shows what Qt itself keeps until the end of a process.
#include <QApplication>
#include <QTimer>
#include <QWidget>

int main(int argc, char *argv[])
{
    const QApplication application(argc, argv);
    QWidget window;
    window.show();
    QTimer::singleShot(0, &application, &QCoreApplication::quit);
    return QApplication::exec();
}

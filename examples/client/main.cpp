// SPDX-License-Identifier: MIT
#include "examples/client/clientfiles.h"
#include "examples/client/mainwindow.h"
#include "examples/client/singleinstance.h"

#include <QApplication>
#include <QDir>

#include <algorithm>
#include <cstdlib>

int main(int argc, char *argv[])
{
    QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    // Qt sees the program's name only. Whoever wrote a link could have it open files: -stylesheet.
    int ownArguments = std::min(argc, 1);
    QApplication application(ownArguments, argv);
    QStringList arguments;
    for (int i = 1; i < argc; ++i)
        arguments.append(QString::fromLocal8Bit(argv[i]));
    // The updater's own until now.
    QDir::setCurrent(QCoreApplication::applicationDirPath());

    SingleInstance instance;
    const SingleInstance::Result result = instance.Start(arguments);
    if (result != SingleInstance::First)
        return result == SingleInstance::HandedOver ? EXIT_SUCCESS : EXIT_FAILURE;

    ClientFiles::RemoveUnfinished();
    MainWindow window;
    QObject::connect(&instance, &SingleInstance::StartedAgain, &window, &MainWindow::TakeArguments);
    window.TakeArguments(arguments);
    window.ShowUnseenNotes();
    return QApplication::exec();
}

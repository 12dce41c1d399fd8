/*
** mareplot_main.cpp -- the window program: the application and its
** settings, then MainWindow, whose constructor starts the host.
*/
#include <signal.h>

#include <QApplication>
#include <QStyleFactory>

#include "shell/main_window.h"

int main(int argc, char *argv[]) {
    /* A client that drops its connection mid-reply must not end the
    ** process; the headless host does the same. */
    signal(SIGPIPE, SIG_IGN);

    QApplication app(argc, argv);
    QCoreApplication::setAttribute(Qt::AA_SynthesizeMouseForUnhandledTouchEvents, false);
    QApplication::setStyle(QStyleFactory::create(QStringLiteral("fusion")));
    QCoreApplication::setAttribute(Qt::AA_SynthesizeMouseForUnhandledTouchEvents, false);
    QCoreApplication::setAttribute(Qt::AA_SynthesizeTouchForUnhandledMouseEvents, false);

    MainWindow w;
    w.show();
    return app.exec();
}

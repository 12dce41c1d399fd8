/*
** window_place.cpp -- the window's size and place between runs. The place
** file holds one line: the base64 text of QWidget::saveGeometry, which
** carries the frame's place, the size and the maximized or full-screen
** state, and which Qt checks against the screens present on restoring.
*/
#include "shell/window_place.h"

#include <QByteArray>
#include <QFile>
#include <QGuiApplication>
#include <QRect>
#include <QScreen>
#include <QWidget>

void mr_window_first_place(QWidget *w) {
    QScreen *screen = QGuiApplication::primaryScreen();
    if (screen == nullptr) {
        w->resize(1024, 700);
        return;
    }
    const QRect area = screen->availableGeometry();
    const int width = area.width() * 4 / 5, height = area.height() * 4 / 5;
    w->resize(width, height);
    w->move(area.x() + (area.width() - width) / 2, area.y() + (area.height() - height) / 2);
}

/* Does the rectangle show enough of itself on some screen to be grabbed
** and moved? A place left on a screen since unplugged does not. */
static bool on_some_screen(const QRect &r) {
    for (QScreen *s : QGuiApplication::screens()) {
        const QRect seen = s->availableGeometry().intersected(r);
        if (seen.width() >= 100 && seen.height() >= 50) return true;
    }
    return false;
}

int mr_window_place(QWidget *w) {
    QFile f(QStringLiteral(MR_WINDOW_PLACE_FILE));
    if (f.open(QIODevice::ReadOnly)) {
        const QByteArray stored = QByteArray::fromBase64(f.readLine(4096).trimmed());
        f.close();
        if (!stored.isEmpty() && w->restoreGeometry(stored) && on_some_screen(w->frameGeometry())) return 1;
    }
    w->setWindowState(w->windowState() & ~(Qt::WindowMaximized | Qt::WindowFullScreen));
    mr_window_first_place(w);
    return 0;
}

void mr_window_keep(const QWidget *w) {
    QFile f(QStringLiteral(MR_WINDOW_PLACE_FILE));
    if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate)) return;
    f.write(w->saveGeometry().toBase64());
    f.write("\n");
    f.close();
}

/*
** web_page.cpp -- the view and page classes, and the share and rating
** actions that the routes reach through their hooks.
*/
#include <QCoreApplication>
#include <QDebug>
#include <QDesktopServices>
#include <QMetaObject>

#include "shell/main_window.h"

rwv::~rwv() {}

MyQWebEnginePage::MyQWebEnginePage(QObject *parent) : QWebEnginePage(parent) { qDebug() << "here"; }

MyQWebEnginePage::~MyQWebEnginePage() {}

/* Only link clicks are judged: a click that leads to the loopback host, on
** any port, stays; any other is handed to the desktop and refused. Loads
** from script, form posts, reloads and redirects all stay in the view. */
bool MyQWebEnginePage::acceptNavigationRequest(const QUrl &url, QWebEnginePage::NavigationType type,
                                               bool isMainFrame) {
    qDebug().nospace() << "acceptNavigationRequest(" << url.toString() << "," << type << ","
                       << (isMainFrame ? "true" : "false") << ")";
    if (type != QWebEnginePage::NavigationTypeLinkClicked) return true;
    if (url.host(QUrl::FullyDecoded) == QLatin1String("127.0.0.1")) return true;
    QDesktopServices::openUrl(url);
    return false;
}

QUrl window_share_url(const char *title, const char *body) {
    /* Latin-1 makes each byte one character; toPercentEncoding then encodes
    ** the UTF-8 of those characters, so non-ASCII text arrives encoded
    ** twice. The mail program sees exactly that. */
    QString t = QString::fromLatin1(title ? title : "");
    QString b = QString::fromLatin1(body ? body : "");
    QString mail = QStringLiteral("mailto:?subject=") + QString::fromLatin1(QUrl::toPercentEncoding(t)) +
                   QStringLiteral("&body=") + QString::fromLatin1(QUrl::toPercentEncoding(b));
    return QUrl(mail, QUrl::TolerantMode);
}

/* Runs on the connection thread of the /postShare/ request, which has
** answered already. The URL is built there; the hand-over to the desktop is
** queued to the user interface thread, where desktop services belong. */
void window_postShare(const char *title, const char *body) {
    QUrl url = window_share_url(title, body);
    QCoreApplication *app = QCoreApplication::instance();
    if (app == nullptr) return;
    QMetaObject::invokeMethod(app, [url]() { QDesktopServices::openUrl(url); }, Qt::QueuedConnection);
}

/* There is no store to rate the program in on this platform. */
void window_rateApp(void) {}

/* window_test.cpp -- the window under a virtual display: start-up, the page, link decisions, the mail
** hand-over, the "GPS Port" menu on a socat pty pair. One MainWindow serves all (its listener lives on). */
#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <QAction>
#include <QApplication>
#include <QDesktopServices>
#include <QDir>
#include <QImage>
#include <QMenuBar>
#include <QProcess>
#include <QSignalSpy>
#include <QStyleFactory>
#include <QtTest>

#include "chartkit/kit_support.h"
#include "http/http_server.h"
#include "nav/nmea.h"
#include "shell/app_record.h"
#include "shell/main_window.h"
#include "shell/window_place.h"
#include "support/host_harness.h"
#include "support/nmea_sentence.h"

/* Stands in for the desktop: receives every URL handed to openUrl. */
class UrlRecorder : public QObject {
    Q_OBJECT
  public:
    QList<QUrl> urls;
  public slots:
    void handle(const QUrl &url) { urls.append(url); }
};

static QString g_home;

static QString dataDir() { return g_home + "/.local/share/mareplot"; }

static QByteArray portKey() { return QByteArray::fromStdString(readFile(dataDir().toStdString() + "/usbport.key")); }

/* The texts of the "GPS Port" menu's entries, or of its checked ones; "|" for a separator. */
static QStringList menuTexts(const MainWindow *w, bool checkedOnly = false) {
    QStringList out;
    for (QAction *a : w->gpsMenu->actions())
        if (!checkedOnly || a->isChecked()) out << (a->isSeparator() ? QString("|") : a->text());
    return out;
}

class WindowTest : public QObject {
    Q_OBJECT
    MainWindow *w = nullptr;
    UrlRecorder rec;
    bool listenerUpAtLoadStart = false;
    QSignalSpy *loadSpy = nullptr;

  private slots:
    void initTestCase() {
        for (const char *scheme : {"http", "https", "mailto"}) QDesktopServices::setUrlHandler(scheme, &rec, "handle");

        w = new MainWindow();
        QWebEnginePage *page = w->view->page();
        connect(page, &QWebEnginePage::loadStarted, this,
                [this]() { listenerUpAtLoadStart = MR_LOAD(httpd_running) != 0; });
        loadSpy = new QSignalSpy(page, &QWebEnginePage::loadFinished);
        w->show();
        QVERIFY(QTest::qWaitForWindowExposed(w));
    }

    void cleanupTestCase() {
        delete w;
        w = nullptr;
        for (const char *scheme : {"http", "https", "mailto"}) QDesktopServices::unsetUrlHandler(scheme);
    }

    /* Stored port and speed never survive a start; a speed picked with no port open is checked and stored. */
    void startResetsThePortAndKeepsASpeedPicked() {
        QCOMPARE(portKey(), QByteArray("Off\n4800"));
        QCOMPARE(menuTexts(w, true), QStringList({"Off", "4800 Baud"}));
        QVERIFY(serPort == nullptr);
        QCOMPARE(w->menuBar()->actions().size(), 1);
        QCOMPARE(w->menuBar()->actions().first()->text(), QString("GPS Port"));
        w->b9600();
        QVERIFY(serPort == nullptr);
        QCOMPARE(menuTexts(w, true), QStringList({"Off", "9600 Baud"}));
        QCOMPARE(portKey(), QByteArray("Off\n9600"));
    }

    void pageLoadsAfterListenerAndRenders() {
        if (loadSpy->isEmpty()) QVERIFY(loadSpy->wait(30000));
        QCOMPARE(loadSpy->first().at(0).toBool(), true);
        QVERIFY(listenerUpAtLoadStart);
        QCOMPARE(w->view->url().path(), QString("/app/marepack.html"));

        /* Something is drawn: the view's picture has more than one colour. */
        bool varied = false;
        for (int attempt = 0; attempt < 40 && !varied; attempt++) {
            QTest::qWait(250);
            QImage img = w->view->grab().toImage();
            if (img.isNull()) continue;
            QRgb first = img.pixel(0, 0);
            for (int y = 0; y < img.height() && !varied; y += 3)
                for (int x = 0; x < img.width() && !varied; x += 3) varied = img.pixel(x, y) != first;
        }
        QVERIFY2(varied, "the rendered page is one uniform colour");
    }

    void navigationDecisions_data() {
        QTest::addColumn<QString>("url");
        QTest::addColumn<int>("type");
        QTest::addColumn<bool>("accepted");
        const int link = QWebEnginePage::NavigationTypeLinkClicked;
        QTest::newRow("loopback") << "http://127.0.0.1:19999/app/x.html" << link << true;
        QTest::newRow("localhost, like a foreign host") << "http://localhost:19999/" << link << false;
        QTest::newRow("foreign, typed") << "https://example.org/" << (int)QWebEnginePage::NavigationTypeTyped
                                        << true;
    }

    /* Only refused link clicks reach the desktop, each exactly once. */
    void navigationDecisions() {
        QFETCH(QString, url);
        QFETCH(int, type);
        QFETCH(bool, accepted);
        auto *page = static_cast<MyQWebEnginePage *>(w->view->page());
        rec.urls.clear();
        for (bool mainFrame : {true, false}) {
            QCOMPARE(page->acceptNavigationRequest(QUrl(url), (QWebEnginePage::NavigationType)type, mainFrame),
                     accepted);
        }
        QCOMPARE(rec.urls.size(), accepted ? 0 : 2);
        if (!accepted) QCOMPARE(rec.urls.first(), QUrl(url));
    }

    /* UTF-8 text is read as Latin-1, so each non-ASCII byte arrives encoded twice. */
    void shareUrlEncodesTwice() {
        QCOMPARE(window_share_url("\xC3\xA9t\xC3\xA9", "\xE2\x82\xAC").toString(QUrl::FullyEncoded),
                 QString("mailto:?subject=%C3%83%C2%A9t%C3%83%C2%A9&body=%C3%A2%C2%82%C2%AC"));
        QCOMPARE(window_share_url(nullptr, nullptr).toString(), QString("mailto:?subject=&body="));
    }

    /* The route's postShare reaches the desktop from a connection thread. */
    void shareThroughTheRoute() {
        rec.urls.clear();
        const QUrl expected("mailto:?subject=a%26b%3Dc&body=x%20y%2Fz%3F");
        HttpReply reply = httpPost("/postShare/a%26b%3Dc", "x y/z?");
        QVERIFY2(reply.complete, reply.statusLine.c_str());
        QTRY_VERIFY_WITH_TIMEOUT(rec.urls.contains(expected), 20000);
        QCOMPARE(rec.urls.count(expected), 1);
        QCOMPARE(rec.urls.first().toString(QUrl::FullyEncoded), expected.toString(QUrl::FullyEncoded));
    }

    /* The web view's own Origin and Host let its status posts through. */
    void pagePostsAreServed() {
        QTRY_VERIFY_WITH_TIMEOUT(MR_LOAD(mrApp.settingsCapacity) > 0 && mrApp.settingsText != nullptr &&
                                     QByteArray(mrApp.settingsText) == "*",
                                 30000);
    }

    /* A second window on the same data directory shows the message in a box, exits 1 once it is answered. */
    void secondWindowOnTheSameDirectory() {
        QProcess second;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("HOME", g_home);
        second.setProcessEnvironment(env);
        second.start(MAREPLOT_PATH, QStringList());
        QVERIFY(second.waitForStarted(10000));  // QProcess's destructor ends it, however the case ends

        QProcess find;
        find.start("xdotool", {"search", "--sync", "--onlyvisible", "--pid", QString::number(second.processId()),
                               "--name", "^mareplot$"});
        QVERIFY2(find.waitForStarted(5000), "xdotool is needed for this test");
        QVERIFY(find.waitForFinished(20000));
        const QString box = QString::fromLatin1(find.readAllStandardOutput()).split('\n').first().trimmed();
        QVERIFY2(!box.isEmpty(), "no message box appeared");
        QCOMPARE(second.state(), QProcess::Running);

        QCOMPARE(QProcess::execute("xdotool", {"windowfocus", "--sync", box, "key", "Return"}), 0);
        QVERIFY(second.waitForFinished(10000));
        QCOMPARE(second.exitStatus(), QProcess::NormalExit);
        QCOMPARE(second.exitCode(), 1);
        const QStringList printed = QString::fromLocal8Bit(second.readAllStandardError()).split('\n');
        QVERIFY2(printed.contains("mareplot is already running with " + dataDir()), qPrintable(printed.join('|')));
        /* this window's host is unharmed */
        QCOMPARE(QString::fromStdString(httpGet("/hostversion").statusLine), QString("HTTP/1.1 200 OK"));
    }

    /* NMEA written into one end of a pty pair, the other picked in the menu, reaches the status exchange. */
    void serialPortFeedsTheFix() {
        kit::PtyPair pty;
        QVERIFY2(fileExists(pty.feed), "socat is needed for this test");
        const QString gps = QString::fromStdString(pty.gps);

        /* The pty is no listed port: it joins the menu as a port entry would and is picked like one. */
        QAction *entry = new QAction(gps, w->portGroup);
        w->gpsMenu->insertAction(w->gpsMenu->actions().at(2), entry);
        entry->trigger();
        QVERIFY(serPort != nullptr);
        QVERIFY(serPort->isOpen());
        QCOMPARE(serPort->baudRate(), 9600);
        QCOMPARE(w->portName, gps);
        QCOMPARE(menuTexts(w, true), QStringList({gps, "9600 Baud"}));
        QCOMPARE(portKey(), (gps + "\n9600").toUtf8());

        MR_STORE(gpsfix.gpsSource, 1);
        int out = open(pty.feed.c_str(), O_WRONLY | O_NOCTTY);
        QVERIFY(out >= 0);
        QByteArray stat;
        for (int i = 0; i < 40 && !stat.contains("\"latY\":48.117300"); i++) {
            std::string line = rmcNow("4807.038", "N", "01131.000", "E");
            QCOMPARE(write(out, line.data(), line.size()), (ssize_t)line.size());
            QTest::qWait(150);
            stat = QByteArray::fromStdString(httpPost("/getSetHostStat/5/10/0/-1", "*").body);
        }
        close(out);
        QVERIFY2(stat.contains("\"latY\":48.117300") && stat.contains("\"lonX\":11.516667"), stat.constData());

        /* "Off" closes the port and says so in the menu and the file. */
        w->gpsMenu->actions().first()->trigger();
        QVERIFY(serPort == nullptr);
        QCOMPARE(w->portName, QString("Off"));
        QCOMPARE(menuTexts(w, true), QStringList({"Off", "9600 Baud"}));
        QCOMPARE(portKey(), QByteArray("Off\n9600"));
        MR_STORE(gpsfix.gpsSource, 0);
    }

    /* Closing keeps the window's size and place for the next start. Last: the window stays closed. */
    void closingKeepsThePlace() {
        const QRect left(100, 80, 820, 610);
        w->setGeometry(left);
        QTRY_COMPARE(w->geometry(), left);
        QVERIFY(w->close());
        QWidget next;
        QCOMPARE(mr_window_place(&next), 1);
        QCOMPARE(next.geometry(), left);
    }
};

int main(int argc, char **argv) {
    /* The window is the host here: anything answering on the port before it is a stranger. */
    if (portAnswers()) {
        fprintf(stderr, "something already listens on 127.0.0.1:19999 before the window starts; stop it, "
                        "or run the test through tests/support/isolate.sh\n");
        return 1;
    }
    /* A fresh home whose stored port, a device at 38400, the start must ignore. */
    const std::string home = makeTempDir("mareplot-window-");
    g_home = QString::fromStdString(home);
    setenv("HOME", home.c_str(), 1);
    unsetenv("XDG_DATA_HOME");
    QDir().mkpath(dataDir());
    writeFile(dataDir().toStdString() + "/usbport.key", "/dev/ttyUSB7\n38400");

    if (getuid() == 0) setenv("QTWEBENGINE_DISABLE_SANDBOX", "1", 0);
    setenv("QTWEBENGINE_CHROMIUM_FLAGS", "--ignore-gpu-blocklist", 0);

    QApplication app(argc, argv);
    QApplication::setStyle(QStyleFactory::create("fusion"));
    WindowTest t;
    int rc = QTest::qExec(&t, argc, argv);
    QDir(g_home).removeRecursively();
    return rc;
}

#include "window_test.moc"

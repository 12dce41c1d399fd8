/*
** main_window.cpp -- the window's constructor, which runs the same start-up
** steps as the headless host and then shows the client's page, and the
** "GPS Port" menu with the serial port behind it.
*/
#include "shell/main_window.h"

#include <stdio.h>
#include <stdlib.h>

#include <QAction>
#include <QByteArray>
#include <QDebug>
#include <QDesktopServices>
#include <QFile>
#include <QMenuBar>
#include <QMessageBox>
#include <QSerialPortInfo>

#include "http/routes.h"
#include "nav/nmea.h"
#include "shell/app_record.h"
#include "shell/serial_lines.h"
#include "shell/service.h"
#include "shell/window_place.h"

QSerialPort *serPort = nullptr;

/* Copies a carried pack out of the resource set `mareplot`. The copy is
** made writable by its owner, like the headless host's, so that a later
** version can replace it. Returns 0 on success, -1 otherwise. */
static int copy_from_resources(const char *resource, const char *fileName) {
    if (!QFile::copy(QString::fromLatin1(resource), QString::fromLocal8Bit(fileName))) return -1;
    QFile::setPermissions(QString::fromLocal8Bit(fileName),
                          QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadGroup |
                              QFileDevice::ReadOther);
    return 0;
}

/* Registers the resource set `mareplot` (qInitResources_mareplot). Its
** static initialiser does so before main already; the explicit call also
** keeps the set in any program that links the window, and a second
** registration of the same set is ignored. */
static void register_carried_packs() { Q_INIT_RESOURCE(mareplot); }

MainWindow::MainWindow(QWidget *parent) : QMainWindow(parent) {
    char dataDir[300];
    char device[320];

    register_carried_packs();

    /* Data directory, current directory, version stamp and the two packs:
    ** the very steps the headless host runs. */
    int found = mr_data_dir(dataDir, sizeof(dataDir));
    if (found != 0) {
        fprintf(stderr, found == -2 ? "mareplot: the data directory's path is too long\n"
                                    : "mareplot: no home directory (set HOME)\n");
        exit(1);
    }
    /* One host per data directory: a second one would share the port and
    ** write the same trip database. Said on the terminal and in a box. */
    char message[400];
    if (mr_lock_data_dir(dataDir, message, sizeof(message)) == 1) {
        fprintf(stderr, "%s\n", message);
        QMessageBox::critical(nullptr, QStringLiteral("mareplot"), QString::fromLocal8Bit(message));
        exit(1);
    }
    mr_settle_packs(dataDir, copy_from_resources);

    /* The stored port is read, then getSerialInfo resets it: no port is
    ** open when the window comes up. */
    QFile portFile(QStringLiteral("usbport.key"));
    if (portFile.open(QIODevice::ReadOnly)) {
        portName = QString::fromUtf8(portFile.readLine(256));
        baudRate = portFile.readLine(32).trimmed().toInt(nullptr, 10);
        portFile.close();
    }
    getSerialInfo();

    mr_device_identity(device, sizeof(device));
    /* The hooks are in place before any connection thread exists. */
    mr_postShare_hook = window_postShare;
    mr_rateApp_hook = window_rateApp;
    app_init_qt("en", device, dataDir, "mareplot");

    /* The listener is up: the page's first request cannot be refused. */
    view = new rwv(this);
    view->setAttribute(Qt::WA_AcceptTouchEvents, false);
    view->setContextMenuPolicy(Qt::NoContextMenu);
    view->setZoomFactor(1.0);

    MyQWebEnginePage *page = new MyQWebEnginePage(this);
    view->setPage(page);
    page->load(QUrl(QStringLiteral("http://%1:%2/app/marepack.html")
                        .arg(QString::fromLatin1(mrApp.bindAddress))
                        .arg(mrApp.port)));

    setCentralWidget(view);
    setUnifiedTitleAndToolBarOnMac(true);
    /* where the user left the window, or most of the screen at first */
    mr_window_place(this);
}

MainWindow::~MainWindow() {}

void MainWindow::closeEvent(QCloseEvent *event) {
    mr_window_keep(this);
    QMainWindow::closeEvent(event);
}

/* Nothing connects this slot; it hands url to the desktop. */
void MainWindow::linkClickedSlot(QUrl url) { QDesktopServices::openUrl(url); }

/* ---- the "GPS Port" menu ---- */

void MainWindow::getSerialInfo() {
    gpsMenu = new QMenu(QStringLiteral("GPS Port"), this);
    portGroup = new QActionGroup(this);

    gpsMenu->addAction(QStringLiteral("Off"), this, SLOT(closePort()));
    gpsMenu->addSeparator();
    /* The ports are listed this one time; a port added later is not. */
    const QList<QSerialPortInfo> ports = QSerialPortInfo::availablePorts();
    for (const QSerialPortInfo &info : ports) {
        QAction *a = gpsMenu->addAction(info.systemLocation());
        portGroup->addAction(a);
    }
    gpsMenu->addSeparator();
    gpsMenu->addAction(QStringLiteral("4800 Baud"), this, SLOT(b4800()));
    gpsMenu->addAction(QStringLiteral("9600 Baud"), this, SLOT(b9600()));
    gpsMenu->addAction(QStringLiteral("38400 Baud"), this, SLOT(b38400()));

    menuBar()->addMenu(gpsMenu);
    connect(portGroup, SIGNAL(triggered(QAction *)), this, SLOT(setPort(QAction *)));

    /* Whatever the file said, every start begins with the port off. */
    baudRate = 4800;
    portName = QStringLiteral("Off");
    checkPort();
}

void MainWindow::checkPort() {
    QString speed;
    if (baudRate == 38400)
        speed = QStringLiteral("38400 Baud");
    else if (baudRate == 9600)
        speed = QStringLiteral("9600 Baud");
    else if (baudRate == 4800)
        speed = QStringLiteral("4800 Baud");

    /* "Off" is an entry like the ports, so it carries the mark for the
    ** closed state with no special case. */
    const QList<QAction *> entries = gpsMenu->actions();
    for (QAction *a : entries) {
        a->setCheckable(true);
        a->setChecked(a->text() == portName || a->text() == speed);
        qDebug() << a->text();
    }

    QFile f(QStringLiteral("usbport.key"));
    if (f.open(QIODevice::WriteOnly)) { /* a failed write is ignored */
        f.write(portName.toLocal8Bit());
        f.write("\n");
        f.write(QByteArray::number(baudRate));
        f.close();
    }
}

void MainWindow::setPort(QAction *action) {
    if (serPort) closePort();
    if (action) portName = action->text();

    serPort = new QSerialPort(portName);
    qDebug() << portName;
    serPort->setBaudRate(baudRate, QSerialPort::AllDirections);
    /* A port that does not open shows as selected all the same. */
    bool opened = serPort->open(QIODevice::ReadOnly);
    qDebug() << (opened ? "true" : "false");
    qDebug() << "Baud rate:" << serPort->baudRate();
    qDebug() << "Data bits:" << serPort->dataBits();
    qDebug() << "Stop bits:" << serPort->stopBits();
    qDebug() << "Parity:" << serPort->parity();
    qDebug() << "Flow control:" << serPort->flowControl();
    qDebug() << "Read buffer size:" << serPort->readBufferSize();

    connect(serPort, SIGNAL(readyRead()), this, SLOT(dataReady()));
    checkPort();
}

void MainWindow::closePort() {
    if (serPort) {
        serPort->close();
        delete serPort;
        serPort = nullptr;
        portName = QStringLiteral("Off");
    }
    checkPort();
}

/* The three speed entries: the speed applies at once to an open port,
** without reopening it, and is kept for the next port otherwise. */
static void set_speed(MainWindow *w, int32_t rate) {
    w->baudRate = rate;
    if (serPort) serPort->setBaudRate(rate, QSerialPort::AllDirections);
    w->checkPort();
}

void MainWindow::b4800() { set_speed(this, 4800); }
void MainWindow::b9600() { set_speed(this, 9600); }
void MainWindow::b38400() { set_speed(this, 38400); }

/* The port's readyRead: everything that arrived goes through the sentence
** accumulator, which lives as long as the process, across port changes. */
void MainWindow::dataReady() {
    static MrSerialLines accumulator;
    if (serPort == nullptr) return;
    QByteArray bytes = serPort->readAll();
    mr_serial_arrival(&accumulator, bytes.constData(), (size_t)bytes.size(), nmea_update);
}

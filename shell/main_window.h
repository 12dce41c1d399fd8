/*
** main_window.h -- the window: MainWindow with its "GPS Port" menu and the
** serial port it reads, the web view rwv and the page MyQWebEnginePage
** that keeps loopback links inside the view.
*/
#ifndef MAREPLOT_MAIN_WINDOW_H
#define MAREPLOT_MAIN_WINDOW_H

#include <QActionGroup>
#include <QCloseEvent>
#include <QMainWindow>
#include <QMenu>
#include <QSerialPort>
#include <QString>
#include <QUrl>
#include <QWebEnginePage>
#include <QWebEngineView>

/* The open serial port, null while none is open. Touched only on the user
** interface thread. */
extern QSerialPort *serPort;

/* The view type the window creates; it adds nothing to its base. */
class rwv : public QWebEngineView {
  public:
    explicit rwv(QWidget *parent = nullptr) : QWebEngineView(parent) {}
    ~rwv() override;
};

/* The page: link clicks stay in the view only when they lead to the
** loopback host; any other link goes to the desktop. */
class MyQWebEnginePage : public QWebEnginePage {
  public:
    explicit MyQWebEnginePage(QObject *parent = nullptr);
    ~MyQWebEnginePage() override;

    /* Returns whether the view may follow the navigation. Public so that
    ** the decision can be driven without a page event. */
    bool acceptNavigationRequest(const QUrl &url, QWebEnginePage::NavigationType type,
                                 bool isMainFrame) override;
};

class MainWindow : public QMainWindow {
    Q_OBJECT
  public:
    explicit MainWindow(QWidget *parent = nullptr);
    ~MainWindow() override;

    /* Builds the "GPS Port" menu once, then resets the port to "Off" and
    ** 4800 and rewrites "usbport.key". */
    void getSerialInfo();
    /* Brings the menu's check marks and "usbport.key" in line with
    ** portName and baudRate. */
    void checkPort();

  public slots:
    void linkClickedSlot(QUrl url);
    void setPort(QAction *action);
    void closePort();
    void b4800();
    void b9600();
    void b38400();
    void dataReady();

  protected:
    /* Keeps the window's size and place for the next start. */
    void closeEvent(QCloseEvent *event) override;

  public:
    rwv *view = nullptr;
    QMenu *gpsMenu = nullptr;
    QActionGroup *portGroup = nullptr;
    QString portName;
    int32_t baudRate = 0;
};

/* The window's share and rating actions, installed as the routes' hooks.
** window_postShare may run on a connection thread. */
void window_postShare(const char *title, const char *body);
void window_rateApp(void);
/* The mail URL window_postShare hands to the desktop. Each byte of title
** and body is taken as one character, so UTF-8 text is encoded twice. */
QUrl window_share_url(const char *title, const char *body);

#endif

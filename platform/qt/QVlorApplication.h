#ifndef QVLORAPPLICATION_H
#define QVLORAPPLICATION_H

#include <QApplication>
#include <QString>

// The editor's application object, and what the library asks of the
// application as a whole. The static services work without an instance.
class QVlorApplication : public QApplication {
    Q_OBJECT
public:
    // The theme the user interface draws in: 1 light, 0 dark.
    enum UiMode { Dark = 0, Light = 1 };

    QVlorApplication(int& argc, char** argv);

    // A build stamp of one of the application's components: component 1 is
    // the VST3 host program, kind 1 its build number. 0 for anything unknown.
    virtual int buildStamp(int component, int kind) const;

    // The application's per-user data folder (settings, catalogs, descriptors).
    static QString applicationDataLocation();
    static int uiMode();
    // For the application's theme switch, and for tests that look at both.
    static void setUiMode(int mode);
    // The theme and the palette that goes with it, for the whole application.
    static void applyTheme(int mode);
    // Whether a desktop is there to show files and windows on (not a
    // command-line run, not an offscreen platform).
    static bool hasDesktop();
    // Shows a file or folder in the desktop's file manager; false without a desktop.
    static bool showExternalLocation(const QString& path);
};

#endif

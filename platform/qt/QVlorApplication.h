#ifndef QVLORAPPLICATION_H
#define QVLORAPPLICATION_H

#include <QString>

// What the library asks of the application as a whole.
class QVlorApplication {
public:
    enum UiMode { Headless = 0, Gui = 1 };

    // The application's per-user data folder (settings, catalogs, descriptors).
    static QString applicationDataLocation();
    static UiMode uiMode();
    static void setUiMode(UiMode mode);
    // Shows a file or folder in the desktop's file manager; false without a desktop.
    static bool showExternalLocation(const QString& path);
};

#endif

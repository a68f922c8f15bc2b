#ifndef QVLORWIDGETS_H
#define QVLORWIDGETS_H
// The editor's small widgets and services that the plugin pages use: the
// menu style, a preferences tab bound to settings keys, and the box editor.

#include <QHash>
#include <QString>
#include <QWidget>

#include <functional>

class QComboBox;
class QLineEdit;
class QLabel;
class QMenu;

class QVlorStyle {
public:
    // The menu's style sheet for the theme of the moment, with extra rules after it.
    static void updateMenuStylesheet(QMenu* menu, const QString& extra = QString());
};

// A page of the preferences dialog: check boxes and the like, each bound to
// a settings key, written as the user changes them.
class QVlorPreferencesTab : public QWidget {
    Q_OBJECT
public:
    explicit QVlorPreferencesTab(QWidget* parent = nullptr);
    // The widget writes key as it changes; its changed signal is to be
    // connected to valueChanged.
    void bind(QWidget* widget, const QString& key);
    QString keyOf(const QObject* widget) const;

    virtual void syncPreferences();
    virtual void onLanguageChanged();
    virtual void onPaletteChanged();

public slots:
    void valueChanged(bool value);

private:
    QHash<const QObject*, QString> m_keys;
};

// The pages the preferences dialog offers, made by name ("plugin_prefs").
class QVlorPreferencesTabFactory {
public:
    using Maker = std::function<QVlorPreferencesTab*(QWidget* parent)>;
    static void registerTab(const QString& name, const Maker& make);
    static void unregisterTab(const QString& name);
    static QStringList names();
    static QVlorPreferencesTab* create(const QString& name, QWidget* parent = nullptr);
};

// A label, a text field and a combo box on one line: a search with a choice
// beside it. textChanged tells the field's text as it is typed.
class QVlorBoxEditor : public QWidget {
    Q_OBJECT
public:
    explicit QVlorBoxEditor(QWidget* parent = nullptr);
    QComboBox* comboBox() const;
    QLineEdit* lineEdit() const;
    void setLabel(const QString& text);
    QString label() const;

signals:
    void textChanged(const QString& text);

private:
    QLabel* m_label;
    QLineEdit* m_edit;
    QComboBox* m_combo;
};

#endif

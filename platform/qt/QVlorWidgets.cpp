#include "QVlorWidgets.h"

#include "QVlorApplication.h"
#include "QVlorSetting.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMap>
#include <QMenu>
#include <QMutex>

void QVlorStyle::updateMenuStylesheet(QMenu* menu, const QString& extra)
{
    if (!menu)
        return;
    const bool light = QVlorApplication::uiMode() == QVlorApplication::Light;
    const QString base = light ? QStringLiteral("QMenu { background: #fbfbfb; color: #1d1d1f; }"
                                                "QMenu::item:selected { background: #d7e6fb; color: #1d1d1f; }"
                                                "QMenu::item:disabled { color: #8a8a8e; }")
                               : QStringLiteral("QMenu { background: #2b2b2e; color: #ececef; }"
                                                "QMenu::item:selected { background: #3d5a80; color: #ffffff; }"
                                                "QMenu::item:disabled { color: #8a8a8e; }");
    menu->setStyleSheet(base + extra);
}

QVlorPreferencesTab::QVlorPreferencesTab(QWidget* parent) : QWidget(parent) {}

void QVlorPreferencesTab::bind(QWidget* widget, const QString& key) { m_keys.insert(widget, key); }
QString QVlorPreferencesTab::keyOf(const QObject* widget) const { return m_keys.value(widget); }
void QVlorPreferencesTab::syncPreferences() {}
void QVlorPreferencesTab::onLanguageChanged() {}
void QVlorPreferencesTab::onPaletteChanged() {}

void QVlorPreferencesTab::valueChanged(bool value)
{
    const QString key = m_keys.value(sender());
    if (!key.isEmpty())
        QVlorSetting::global().change(key, value);
}

namespace {
QMutex g_tabsLock;
QMap<QString, QVlorPreferencesTabFactory::Maker>& tabs()
{
    static QMap<QString, QVlorPreferencesTabFactory::Maker> makers;
    return makers;
}
} // namespace

void QVlorPreferencesTabFactory::registerTab(const QString& name, const Maker& make)
{
    QMutexLocker l(&g_tabsLock);
    tabs().insert(name, make);
}

void QVlorPreferencesTabFactory::unregisterTab(const QString& name)
{
    QMutexLocker l(&g_tabsLock);
    tabs().remove(name);
}

QStringList QVlorPreferencesTabFactory::names()
{
    QMutexLocker l(&g_tabsLock);
    return tabs().keys();
}

QVlorPreferencesTab* QVlorPreferencesTabFactory::create(const QString& name, QWidget* parent)
{
    Maker make;
    {
        QMutexLocker l(&g_tabsLock);
        make = tabs().value(name);
    }
    return make ? make(parent) : nullptr;
}

QVlorBoxEditor::QVlorBoxEditor(QWidget* parent)
    : QWidget(parent), m_label(new QLabel(this)), m_edit(new QLineEdit(this)), m_combo(new QComboBox(this))
{
    m_edit->setClearButtonEnabled(true);
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_label);
    layout->addWidget(m_edit, 1);
    layout->addWidget(m_combo);
    m_label->setBuddy(m_edit);
    setFocusProxy(m_edit);
    connect(m_edit, &QLineEdit::textChanged, this, &QVlorBoxEditor::textChanged);
}

QComboBox* QVlorBoxEditor::comboBox() const { return m_combo; }
QLineEdit* QVlorBoxEditor::lineEdit() const { return m_edit; }
void QVlorBoxEditor::setLabel(const QString& text) { m_label->setText(text); }
QString QVlorBoxEditor::label() const { return m_label->text(); }

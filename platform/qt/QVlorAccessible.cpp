#include "QVlorAccessible.h"

#include <QAbstractSlider>
#include <QAccessible>
#include <QAccessibleWidget>
#include <QLabel>
#include <QLineEdit>
#include <QVariant>

namespace {

const char* const kValueTextProperty = "vlorAccessibleValue";
const char* const kAnnouncerName = "vlorAnnouncer";
QVlorAccessible::Listener g_listener;

// A slider that reads its value as the text beside it, where Qt's own reads
// the bare position.
class ValueTextSlider : public QAccessibleWidget, public QAccessibleValueInterface {
public:
    explicit ValueTextSlider(QWidget* widget) : QAccessibleWidget(widget, QAccessible::Slider) {}

    void* interface_cast(QAccessible::InterfaceType type) override
    {
        if (type == QAccessible::ValueInterface)
            return static_cast<QAccessibleValueInterface*>(this);
        return QAccessibleWidget::interface_cast(type);
    }
    QString text(QAccessible::Text t) const override
    {
        if (t != QAccessible::Value)
            return QAccessibleWidget::text(t);
        const QString shown = QVlorAccessible::valueText(object());
        return shown.isEmpty() ? QString::number(slider()->value()) : shown;
    }
    QVariant currentValue() const override { return slider()->value(); }
    void setCurrentValue(const QVariant& value) override { slider()->setValue(value.toInt()); }
    QVariant maximumValue() const override { return slider()->maximum(); }
    QVariant minimumValue() const override { return slider()->minimum(); }
    QVariant minimumStepSize() const override { return slider()->singleStep(); }

private:
    QAbstractSlider* slider() const { return static_cast<QAbstractSlider*>(widget()); }
};

// The window's notification: shown anew with each text, which is what
// readers listen for on an object of that role.
class Announcer : public QAccessibleWidget {
public:
    explicit Announcer(QWidget* widget) : QAccessibleWidget(widget, QAccessible::Notification) {}
    QString text(QAccessible::Text t) const override
    {
        if (t == QAccessible::Name)
            return static_cast<QLabel*>(widget())->text();
        return QAccessibleWidget::text(t);
    }
};

QAccessibleInterface* factory(const QString& className, QObject* object)
{
    if (!object || !object->isWidgetType())
        return nullptr;
    if (object->objectName() == QLatin1String(kAnnouncerName) && qobject_cast<QLabel*>(object))
        return new Announcer(static_cast<QWidget*>(object));
    // Every slider: one without a text reads its number, as Qt's own does.
    if (className == QLatin1String("QSlider"))
        return new ValueTextSlider(static_cast<QWidget*>(object));
    return nullptr;
}

void installFactory()
{
    static const bool installed = [] {
        QAccessible::installFactory(factory);
        return true;
    }();
    (void)installed;
}

QLabel* announcerOf(QWidget* near, bool make)
{
    QWidget* window = near ? near->window() : nullptr;
    if (!window)
        return nullptr;
    auto* label = window->findChild<QLabel*>(QLatin1String(kAnnouncerName), Qt::FindDirectChildrenOnly);
    if (!label && make) {
        installFactory();
        label = new QLabel(window);
        label->setObjectName(QLatin1String(kAnnouncerName));
        label->setGeometry(0, 0, 0, 0);
        label->setAttribute(Qt::WA_TransparentForMouseEvents);
        label->setFocusPolicy(Qt::NoFocus);
    }
    return label;
}

} // namespace

namespace QVlorAccessible {

void followValueText(QAbstractSlider* slider, QLineEdit* field, const QString& units)
{
    const auto take = [slider, units](const QString& text) {
        setValueText(slider, units.isEmpty() || text.isEmpty() ? text : text + QLatin1Char(' ') + units);
    };
    take(field->text());
    QObject::connect(field, &QLineEdit::textChanged, slider, take);
}

void setValueText(QAbstractSlider* slider, const QString& text)
{
    if (!slider)
        return;
    installFactory();
    const bool changed = slider->property(kValueTextProperty).toString() != text;
    slider->setProperty(kValueTextProperty, text);
    if (changed && QAccessible::isActive()) {
        QAccessibleValueChangeEvent event(slider, text);
        QAccessible::updateAccessibility(&event);
    }
}

QString valueText(const QObject* slider)
{
    return slider ? slider->property(kValueTextProperty).toString() : QString();
}

void announce(QWidget* near, const QString& text, Urgency urgency)
{
    QLabel* label = announcerOf(near, true);
    if (!label || text.isEmpty() || label->text() == text)
        return;
    label->setText(text);
    // Shown anew, not moved into: the focus stays with the user.
    label->hide();
    label->show();
    QAccessibleEvent named(label, QAccessible::NameChanged);
    QAccessible::updateAccessibility(&named);
    if (urgency == Alert) {
        QAccessibleEvent alert(label, QAccessible::Alert);
        QAccessible::updateAccessibility(&alert);
    }
    if (g_listener)
        g_listener(label, text, urgency);
}

void setListener(const Listener& listener) { g_listener = listener; }

QString lastAnnouncement(QWidget* near)
{
    const QLabel* label = announcerOf(near, false);
    return label ? label->text() : QString();
}

} // namespace QVlorAccessible

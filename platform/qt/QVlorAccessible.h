#ifndef QVLORACCESSIBLE_H
#define QVLORACCESSIBLE_H
// What the editor tells a screen reader beyond what the widgets say of
// themselves: the text a control's value stands for, and changes that happen
// without the user's doing (a scan's progress, a failed check, a crash),
// told without taking the focus from where the user works.

#include <QString>

#include <functional>

class QAbstractSlider;
class QLineEdit;
class QObject;
class QWidget;

namespace QVlorAccessible {

// A slider's value as a screen reader reads it: the text the plugin shows
// ("-20 dB", "Off") where the slider's number means nothing to a person.
// Called first right after the slider is made (an empty text will do): a
// reader's view of a widget is made once, at its first event.
void setValueText(QAbstractSlider* slider, const QString& text);
QString valueText(const QObject* slider);
// The value text kept as the field beside the slider shows it, with its units.
void followValueText(QAbstractSlider* slider, QLineEdit* field, const QString& units);

enum Urgency {
    Polite = 0, // read when the reader is idle: progress, an end
    Alert = 1   // read at once: a failure, a crash
};

// Tells the reader of a change near a widget, through the window's own
// notification object; the focus stays where it is. Repeating the last text
// of that window says nothing again.
void announce(QWidget* near, const QString& text, Urgency urgency = Polite);
// The last text announced in the window of a widget, for tests and for
// those who look.
QString lastAnnouncement(QWidget* near);

// Told of each announcement as it is made, with the notification object a
// reader reads it from. Qt sends the events only while a reader listens;
// this is told always. Tests set it, and clear it with an empty one.
using Listener = std::function<void(QWidget* notification, const QString& text, Urgency urgency)>;
void setListener(const Listener& listener);

} // namespace QVlorAccessible

#endif

#pragma once

#include "engine/TWInstructionKey.h"

#include <QObject>

#include <cmath>

class TWAction;

// A secure field is a text field that hides what is typed (a password).
enum class TWControlKind { Slider, Field, SecureField, PopUp, CheckBox, Segmented, RadioGroup, Label };

// One control of an action's panel and the instruction key it shows and drives (a label only shows).
struct TWControl {
    TWControlKind kind = TWControlKind::Field;
    QString key;
    QString label;                   // shown beside the control ("Level")
    double minimum = 0, maximum = 0; // a slider's travel; a field takes any value its key accepts
    int decimals = 0;                // digits after the point a field or label shows
    QString unit;                    // shown after the value ("dB")
    QList<TWChoice> choices;         // the items of a pop-up, radio group or segmented control
    bool enabled = true;             // false: shown greyed, the user cannot change it while other keys say so
    QString part = {};               // the entry of a dictionary key it shows (a plug-in parameter's symbol)
};

// An action's panel without widgets: its controls, the keys they drive, and the action's rules for a
// value the user gives a control (a slider rounded to half a decibel, a typed level above 0 dB taken as
// 0). The window draws one widget per control and calls setValue when the user changes one; then every
// control shows anew, as a control may show a key through another (a slider's scale set by a unit
// pop-up). Tests drive it the same way, headless. Main thread only; the action must outlive the model.
class TWPanelModel : public QObject {
    Q_OBJECT
public:
    explicit TWPanelModel(TWAction& action, QObject* parent = nullptr);

    TWAction& action() const { return m_action; }
    const QList<TWControl>& controls() const { return m_controls; }
    // The control as it stands now: its unit and number format may follow other keys.
    TWControl control(qsizetype control) const;
    // The value the control shows now, and a field's text in its number format and unit (a secure
    // field's as one bullet a character).
    QVariant value(qsizetype control) const;
    QString text(qsizetype control) const;
    // The number format of a field as a pattern ("0.00" for two decimals).
    static QString numberFormat(int decimals);
    // The user set the control to value: the action's rule for that control decides the key's value.
    void setValue(qsizetype control, const QVariant& value);
    // The action's instructions were replaced (a workflow opened, a script): every control shows anew.
    void reload();
    // The panel's preview switch.
    void setPreview(bool on);

signals:
    // An instruction key took a value, or "preview" when the preview switch was set.
    void valueChanged(const QString& key);
    // The controls are others: a value chose them (an effect's parameters follow the effect chosen).
    void controlsChanged();

private:
    void refreshControls();

    TWAction& m_action;
    QList<TWControl> m_controls;
};

// A slider's level rounded to the nearest half decibel (twice the value rounded, halved).
inline double TWHalfDecibels(double value) {
    return std::round(value * 2.0) / 2.0;
}

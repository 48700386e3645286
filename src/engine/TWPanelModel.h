#pragma once

#include "engine/TWInstructionKey.h"

#include <QObject>

class TWAction;

enum class TWControlKind { Slider, Field, PopUp, CheckBox, Segmented, RadioGroup };

// One control of an action's panel and the instruction key it shows and drives.
struct TWControl {
    TWControlKind kind = TWControlKind::Field;
    QString key;
    QString label;                   // shown beside the control ("Level")
    double minimum = 0, maximum = 0; // a slider's travel; a field takes any value its key accepts
    int decimals = 0;                // digits after the point a field shows
    QString unit;                    // shown after the value ("dB")
    QList<TWChoice> choices;         // the items of a pop-up, radio group or segmented control
};

// An action's panel without widgets: its controls, the keys they drive, and the action's rules for a
// value the user gives a control (a slider rounded to half a decibel, a typed level above 0 dB taken as
// 0). The window draws one widget per control and calls setValue when the user changes one; every control
// of that key then shows the key's new value. Tests drive it the same way, headless. Main thread only;
// the action must outlive the model.
class TWPanelModel : public QObject {
    Q_OBJECT
public:
    explicit TWPanelModel(TWAction& action, QObject* parent = nullptr);

    TWAction& action() const { return m_action; }
    const QList<TWControl>& controls() const { return m_controls; }
    // The value the control shows now, and a field's text in its number format and unit.
    QVariant value(qsizetype control) const;
    QString text(qsizetype control) const;
    // The user set the control to value: the action's rule for that control decides the key's value.
    void setValue(qsizetype control, const QVariant& value);
    // The action's instructions were replaced (a workflow opened, a script): every control shows anew.
    void reload();

signals:
    void valueChanged(const QString& key);

private:
    TWAction& m_action;
    QList<TWControl> m_controls;
};

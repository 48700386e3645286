#include "engine/TWPanelModel.h"

#include "engine/TWAction.h"

#include <algorithm>

TWPanelModel::TWPanelModel(TWAction& action, QObject* parent)
    : QObject(parent), m_action(action), m_controls(action.panelControls()) {}

TWControl TWPanelModel::control(qsizetype control) const {
    return m_action.controlAsShown(m_controls.at(control));
}

QVariant TWPanelModel::value(qsizetype control) const {
    return m_action.controlValue(m_controls.at(control));
}

QString TWPanelModel::numberFormat(int decimals) {
    return decimals > 0 ? QStringLiteral("0.") + QString(decimals, u'0') : QStringLiteral("0");
}

QString TWPanelModel::text(qsizetype index) const {
    const TWControl control = this->control(index);
    const QVariant shown = value(index);
    if (control.kind == TWControlKind::SecureField) return QString(shown.toString().size(), QChar(0x2022));
    for (const TWChoice& choice : control.choices)
        if (choice.value == shown) return choice.title;
    const bool numeric = control.kind == TWControlKind::Field || control.kind == TWControlKind::Label;
    QString text = numeric && shown.typeId() == QMetaType::Double
                       ? QString::number(shown.toDouble(), 'f', control.decimals)
                       : shown.toString();
    return control.unit.isEmpty() ? text : text + u' ' + control.unit;
}

void TWPanelModel::setValue(qsizetype index, const QVariant& given) {
    const TWControl& control = m_controls.at(index);
    const QVariant ruled = m_action.valueFromControl(control, given);
    if (!ruled.isValid()) return; // the rule refused it: the controls keep showing the old value
    const QString key = control.key; // the control may go with the refresh
    m_action.setObjectForInstructionKey(key, ruled);
    refreshControls();
    emit valueChanged(key);
}

void TWPanelModel::reload() {
    refreshControls();
    for (const TWControl& control : std::as_const(m_controls))
        emit valueChanged(control.key);
}

void TWPanelModel::refreshControls() {
    QList<TWControl> now = m_action.panelControls();
    const auto same = [](const TWControl& a, const TWControl& b) {
        return a.kind == b.kind && a.key == b.key && a.part == b.part;
    };
    if (std::equal(now.cbegin(), now.cend(), m_controls.cbegin(), m_controls.cend(), same)) return;
    m_controls = std::move(now);
    emit controlsChanged();
}

void TWPanelModel::setPreview(bool on) {
    m_action.setPreview(on);
    emit valueChanged(QStringLiteral("preview"));
}

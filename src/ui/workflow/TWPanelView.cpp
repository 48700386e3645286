#include "ui/workflow/TWPanelView.h"

#include "engine/TWAction.h"
#include "engine/TWPanelModel.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QDoubleValidator>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QIntValidator>
#include <QLabel>
#include <QLineEdit>
#include <QRadioButton>
#include <QSignalBlocker>
#include <QSlider>
#include <QToolButton>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>
#include <optional>

namespace {

// A slider's double range as whole ticks of the control's last decimal: 0 to 1 with two decimals is 100
// ticks. A range finer than kMaxTicks is stepped coarser: no mouse reaches more positions than a screen
// has pixels, and the keys then still move it in a useful number of steps.
struct SliderScale {
    static constexpr int kMaxTicks = 10000;

    explicit SliderScale(const TWControl& control) : minimum(control.minimum), decimals(control.decimals) {
        const double span = std::max(0.0, control.maximum - control.minimum);
        step = std::pow(10.0, -decimals);
        const double wanted = std::round(span / step);
        ticks = int(std::clamp(wanted, 1.0, double(kMaxTicks)));
        if (wanted > kMaxTicks || span == 0) step = span / ticks;
    }
    int tick(double value) const {
        return step > 0 ? int(std::clamp(std::round((value - minimum) / step), 0.0, double(ticks))) : 0;
    }
    double value(int tick) const {
        const double scale = std::pow(10.0, decimals);
        return std::round((minimum + tick * step) * scale) / scale;
    }

    double minimum = 0, step = 1;
    int decimals = 0, ticks = 1;
};

std::optional<TWInstructionKey> keyNamed(const TWAction& action, const QString& name) {
    for (const TWInstructionKey& key : action.instructionKeys())
        if (key.name == name) return key;
    return std::nullopt;
}

// Typed text as the key's value, read as the command line reads it; invalid when it cannot be.
QVariant typedText(const std::optional<TWInstructionKey>& key, const QString& text) {
    if (!key) return text;
    if (key->type == TWValueType::List) {
        const LXResult<QVariant> list = key->valueFromText(text);
        return list ? *list : QVariant();
    }
    return key->converted(text).value_or(QVariant());
}

QString accessibleNameOf(const TWControl& control) {
    return control.label.isEmpty() ? control.key : control.label;
}

} // namespace

TWPanelView::TWPanelView(TWPanelModel& model, QWidget* parent) : QWidget(parent), m_model(model) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    connect(&m_model, &TWPanelModel::valueChanged, this, &TWPanelView::refresh);
    connect(&m_model, &TWPanelModel::controlsChanged, this, &TWPanelView::rebuild);
    rebuild();
}

TWPanelView::~TWPanelView() = default;

QWidget* TWPanelView::widgetFor(qsizetype control) const {
    return control >= 0 && control < qsizetype(m_rows.size()) ? m_rows[size_t(control)].widget : nullptr;
}

void TWPanelView::refresh() {
    for (size_t i = 0; i < m_rows.size(); ++i) {
        m_rows[i].show();
        m_rows[i].placed->setEnabled(m_model.control(qsizetype(i)).enabled);
    }
}

void TWPanelView::rebuild() {
    // The old widgets may be the sender of the change that brought the new controls: they go once the
    // event loop is back, and at once out of the panel.
    if (m_body) {
        m_body->hide();
        m_body->setParent(nullptr);
        m_body->deleteLater();
    }
    m_rows.clear();
    m_body = new QWidget(this);
    auto* form = new QFormLayout(m_body);
    form->setContentsMargins(0, 0, 0, 0);
    for (qsizetype i = 0; i < m_model.controls().size(); ++i) {
        Row row = makeRow(i, m_body);
        const TWControl control = m_model.control(i);
        // A check box says what it is itself; the others take a label in front.
        row.placed = row.widget->parentWidget() == m_body ? row.widget : row.widget->parentWidget();
        if (control.kind == TWControlKind::CheckBox || control.label.isEmpty()) {
            form->addRow(row.placed);
        } else {
            auto* label = new QLabel(control.label + u':', m_body);
            label->setBuddy(row.widget);
            form->addRow(label, row.placed);
        }
        m_rows.push_back(std::move(row));
    }
    layout()->addWidget(m_body);
    refresh();
}

void TWPanelView::give(QWidget* body, qsizetype control, const QVariant& value) {
    if (body != m_body) return; // a widget of controls that have been replaced
    if (value.isValid()) m_model.setValue(control, value);
    // Also after a refusal, so that the widget shows the value kept.
    if (body == m_body) refresh();
}

TWPanelView::Row TWPanelView::makeRow(qsizetype index, QWidget* body) {
    const TWControl control = m_model.control(index);
    const QString name = accessibleNameOf(control);
    const auto send = [this, body, index](const QVariant& value) { give(body, index, value); };
    Row row;
    switch (control.kind) {
    case TWControlKind::Slider: {
        auto* slider = new QSlider(Qt::Horizontal, body);
        connect(slider, &QSlider::valueChanged, body,
                [this, index, send](int tick) { send(SliderScale(m_model.control(index)).value(tick)); });
        row = {slider, [this, slider, index] {
                   const SliderScale scale(m_model.control(index));
                   const QSignalBlocker blocker(slider);
                   slider->setRange(0, scale.ticks);
                   slider->setPageStep(std::max(1, scale.ticks / 10));
                   slider->setValue(scale.tick(m_model.value(index).toDouble()));
                   slider->setToolTip(m_model.text(index));
               }};
        break;
    }
    case TWControlKind::Field:
    case TWControlKind::SecureField: {
        // The unit stands beside the text, so that what is typed is the number alone.
        auto* box = new QWidget(body);
        auto* layout = new QHBoxLayout(box);
        layout->setContentsMargins(0, 0, 0, 0);
        auto* edit = new QLineEdit(box);
        auto* unit = new QLabel(box);
        layout->addWidget(edit, 1);
        layout->addWidget(unit);
        const std::optional<TWInstructionKey> key = keyNamed(m_model.action(), control.key);
        const bool secure = control.kind == TWControlKind::SecureField;
        if (secure) edit->setEchoMode(QLineEdit::Password);
        QValidator* validator = nullptr;
        if (key && key->type == TWValueType::Number && control.part.isEmpty())
            validator = new QDoubleValidator(edit);
        else if (key && key->type == TWValueType::Integer)
            validator = new QIntValidator(edit);
        if (validator) {
            validator->setLocale(QLocale::c()); // the number format of the model and the command line
            edit->setValidator(validator);
        }
        connect(edit, &QLineEdit::editingFinished, body,
                [edit, key, send] { send(typedText(key, edit->text())); });
        row = {edit, [this, edit, unit, index, secure] {
                   const TWControl shown = m_model.control(index);
                   QString text = secure ? m_model.value(index).toString() : m_model.text(index);
                   if (!shown.unit.isEmpty() && text.endsWith(u' ' + shown.unit))
                       text.chop(shown.unit.size() + 1);
                   const QSignalBlocker blocker(edit);
                   edit->setText(text);
                   unit->setText(shown.unit);
                   unit->setVisible(!shown.unit.isEmpty());
               }};
        break;
    }
    case TWControlKind::PopUp: {
        auto* popUp = new QComboBox(body);
        connect(popUp, &QComboBox::activated, body, [popUp, send](int item) { send(popUp->itemData(item)); });
        row = {popUp, [this, popUp, index] {
                   const TWControl shown = m_model.control(index);
                   const QSignalBlocker blocker(popUp);
                   bool same = popUp->count() == shown.choices.size();
                   for (int i = 0; same && i < popUp->count(); ++i)
                       same = popUp->itemText(i) == shown.choices[i].title;
                   if (!same) {
                       popUp->clear();
                       for (const TWChoice& choice : shown.choices)
                           popUp->addItem(choice.title, choice.value);
                   }
                   const QVariant value = m_model.value(index);
                   int current = -1;
                   for (int i = 0; i < shown.choices.size() && current < 0; ++i)
                       if (shown.choices[i].value == value) current = i;
                   popUp->setCurrentIndex(current);
               }};
        break;
    }
    case TWControlKind::CheckBox: {
        auto* check = new QCheckBox(control.label, body);
        connect(check, &QCheckBox::clicked, body, [send](bool checked) { send(checked); });
        row = {check, [this, check, index] {
                   const QSignalBlocker blocker(check);
                   check->setChecked(m_model.value(index).toBool());
               }};
        break;
    }
    case TWControlKind::Segmented:
    case TWControlKind::RadioGroup: {
        // One button per choice in an exclusive group; a segmented control's buttons side by side.
        const bool segmented = control.kind == TWControlKind::Segmented;
        auto* box = new QWidget(body);
        QBoxLayout* layout =
            segmented ? static_cast<QBoxLayout*>(new QHBoxLayout(box)) : new QVBoxLayout(box);
        layout->setContentsMargins(0, 0, 0, 0);
        layout->setSpacing(segmented ? 0 : layout->spacing());
        auto* group = new QButtonGroup(box);
        for (qsizetype i = 0; i < control.choices.size(); ++i) {
            QAbstractButton* button = nullptr;
            if (segmented) {
                auto* tool = new QToolButton(box);
                tool->setToolButtonStyle(Qt::ToolButtonTextOnly);
                button = tool;
            } else {
                button = new QRadioButton(box);
            }
            button->setText(control.choices[i].title);
            button->setCheckable(true);
            group->addButton(button, int(i));
            layout->addWidget(button);
        }
        if (!segmented) layout->addStretch();
        const QList<TWChoice> choices = control.choices;
        connect(group, &QButtonGroup::idClicked, body,
                [choices, send](int id) { send(choices.value(id).value); });
        row = {box, [this, group, index] {
                   const QVariant value = m_model.value(index);
                   const QList<TWChoice> shown = m_model.control(index).choices;
                   for (qsizetype i = 0; i < shown.size(); ++i)
                       if (QAbstractButton* button = group->button(int(i));
                           button && shown[i].value == value) {
                           const QSignalBlocker blocker(group);
                           button->setChecked(true);
                       }
               }};
        break;
    }
    case TWControlKind::Label: {
        auto* label = new QLabel(body);
        row = {label, [this, label, index] { label->setText(m_model.text(index)); }};
        break;
    }
    }
    row.widget->setAccessibleName(name);
    return row;
}

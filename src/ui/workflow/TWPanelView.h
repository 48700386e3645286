#pragma once

#include <QWidget>

#include <functional>
#include <vector>

class QFormLayout;
class TWPanelModel;

// An action's panel drawn from its model: one widget per control, each named for assistive technology by
// its label. A change the user makes goes through the model's rules (TWPanelModel::setValue), after which
// every widget shows its control anew, since one control may show a key through another. When the controls
// themselves change (an effect chosen brings its parameters) the widgets are made again, which makes this
// the generic editor of a plug-in's parameters too. Main thread; the model must outlive the view.
class TWPanelView final : public QWidget {
    Q_OBJECT
public:
    explicit TWPanelView(TWPanelModel& model, QWidget* parent = nullptr);
    ~TWPanelView() override;

    TWPanelModel& model() const { return m_model; }
    // The widget that shows the model's control number `control` (a container for radio buttons and
    // segmented controls); nullptr out of range.
    QWidget* widgetFor(qsizetype control) const;
    // Every widget shows its control's value and enabled state as the model has them now.
    void refresh();

private:
    struct Row {
        QWidget* widget = nullptr;
        std::function<void()> show; // sets the widget from the model, without sending a change back
        QWidget* placed = nullptr;  // what the form holds: the widget, or the box around it and its unit
    };

    void rebuild();
    Row makeRow(qsizetype control, QWidget* body);
    // The user gave the control a value: the model decides, then every control shows anew.
    void give(QWidget* body, qsizetype control, const QVariant& value);

    TWPanelModel& m_model;
    QWidget* m_body = nullptr; // holds the rows; replaced whole when the controls change
    std::vector<Row> m_rows;
};

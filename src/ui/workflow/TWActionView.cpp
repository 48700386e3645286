#include "ui/workflow/TWActionView.h"

#include "engine/TWAction.h"
#include "engine/TWPanelModel.h"
#include "ui/workflow/TWDestinationPopUp.h"
#include "ui/workflow/TWPanelView.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QSignalBlocker>
#include <QStandardItemModel>
#include <QStyle>
#include <QToolButton>
#include <QVBoxLayout>

namespace {

QToolButton* toolButton(QWidget* parent, QStyle::StandardPixmap icon, const QString& name) {
    auto* button = new QToolButton(parent);
    button->setIcon(parent->style()->standardIcon(icon));
    button->setAutoRaise(true);
    button->setAccessibleName(name);
    button->setToolTip(name);
    return button;
}

} // namespace

TWActionView::TWActionView(TWAction& action, QWidget* parent)
    : QFrame(parent), m_action(action), m_model(new TWPanelModel(action, this)) {
    connect(m_model, &TWPanelModel::valueChanged, this, &TWActionView::settingsChanged);
    setFrameShape(QFrame::StyledPanel);
    setAccessibleName(action.name());

    auto* header = new QHBoxLayout;
    m_disclosure = new QToolButton(this);
    m_disclosure->setAutoRaise(true);
    m_disclosure->setCheckable(true);
    m_disclosure->setAccessibleName(QStringLiteral("Show settings"));
    m_active = new QCheckBox(this);
    m_active->setAccessibleName(QStringLiteral("Active"));
    m_active->setToolTip(QStringLiteral("Run this action"));
    m_title = new QLabel(action.name(), this);
    QFont bold = m_title->font();
    bold.setBold(true);
    m_title->setFont(bold);
    m_preview = new QCheckBox(QStringLiteral("Preview"), this);
    m_preview->setVisible(action.canPreview());
    QToolButton* up = toolButton(this, QStyle::SP_ArrowUp, QStringLiteral("Move up"));
    QToolButton* down = toolButton(this, QStyle::SP_ArrowDown, QStringLiteral("Move down"));
    QToolButton* remove = toolButton(this, QStyle::SP_TitleBarCloseButton, QStringLiteral("Remove"));
    header->addWidget(m_disclosure);
    header->addWidget(m_active);
    header->addWidget(m_title, 1);
    header->addWidget(m_preview);
    header->addWidget(up);
    header->addWidget(down);
    header->addWidget(remove);

    m_body = new QWidget(this);
    auto* body = new QVBoxLayout(m_body);
    body->setContentsMargins(m_disclosure->sizeHint().width(), 0, 0, 0);
    auto* where = new QFormLayout;
    m_source = new QComboBox(m_body);
    m_source->setAccessibleName(QStringLiteral("Source"));
    where->addRow(QStringLiteral("Source:"), m_source);
    m_destination = new TWDestinationPopUp(action, m_body);
    where->addRow(QStringLiteral("Destination:"), m_destination);
    // An action that works in place only has no destination to choose.
    where->setRowVisible(m_destination, !action.onlyInPlace());
    body->addLayout(where);
    m_panel = new TWPanelView(*m_model, m_body);
    body->addWidget(m_panel);

    auto* layout = new QVBoxLayout(this);
    layout->addLayout(header);
    layout->addWidget(m_body);

    connect(m_disclosure, &QToolButton::toggled, this, [this](bool open) {
        m_action.setDisclosed(open);
        refresh();
    });
    connect(m_active, &QCheckBox::clicked, this, [this](bool active) {
        m_action.setActive(active);
        refresh();
        emit previewChanged();
    });
    connect(m_preview, &QCheckBox::clicked, this, [this](bool preview) {
        m_action.setPreview(preview);
        emit previewChanged();
    });
    connect(m_source, &QComboBox::activated, this,
            [this](int item) { m_action.setSource(m_source->itemData(item).toInt()); });
    connect(up, &QToolButton::clicked, this, [this] { emit moveRequested(-1); });
    connect(down, &QToolButton::clicked, this, [this] { emit moveRequested(+1); });
    connect(remove, &QToolButton::clicked, this, &TWActionView::removeRequested);
    refresh();
}

TWActionView::~TWActionView() = default;

void TWActionView::setFirst(bool first) {
    m_first = first;
    fillSources();
}

void TWActionView::refresh() {
    {
        const QSignalBlocker blockDisclosure(m_disclosure);
        m_disclosure->setChecked(m_action.isDisclosed());
        m_disclosure->setArrowType(m_action.isDisclosed() ? Qt::DownArrow : Qt::RightArrow);
    }
    // An inactive action stays folded and its name grey.
    m_disclosure->setEnabled(m_action.isActive());
    m_active->setChecked(m_action.isActive());
    m_title->setEnabled(m_action.isActive());
    m_preview->setChecked(m_action.preview());
    m_preview->setEnabled(m_action.isActive());
    m_body->setVisible(m_action.isDisclosed());
    fillSources();
    m_destination->refresh();
    m_model->reload();
}

void TWActionView::fillSources() {
    const QSignalBlocker blocker(m_source);
    m_source->clear();
    m_source->addItem(QStringLiteral("All files"), TWSource::AllEntries);
    m_source->addItem(QStringLiteral("Selected files"), TWSource::Selection);
    m_source->addItem(QStringLiteral("Previous results"), TWSource::PreviousResults);
    if (m_first)
        if (auto* items = qobject_cast<QStandardItemModel*>(m_source->model()))
            items->item(2)->setEnabled(false);
    // Only a command names its files; a workflow that came from one still shows it.
    if (m_action.source() == TWSource::Paths)
        m_source->addItem(QStringLiteral("Files named"), TWSource::Paths);
    m_source->setCurrentIndex(m_source->findData(m_action.source()));
}

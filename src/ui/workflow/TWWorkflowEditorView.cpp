#include "ui/workflow/TWWorkflowEditorView.h"

#include "engine/TWRunController.h"
#include "engine/TWWorkflowEditor.h"
#include "ui/workflow/TWActionCatalogue.h"
#include "ui/workflow/TWActionView.h"

#include "platform/TWPreferences.h"

#include <QDragEnterEvent>
#include <QHBoxLayout>
#include <QMimeData>
#include <QPushButton>
#include <QScrollArea>
#include <QSplitter>
#include <QVBoxLayout>

#include <algorithm>

TWWorkflowEditorView::TWWorkflowEditorView(TWWorkflowEditor& editor, TWRunController& runs, QWidget* parent)
    : QWidget(parent), m_editor(editor), m_runs(runs) {
    setObjectName(QStringLiteral("workflow"));
    setAcceptDrops(true);
    auto* splitter = new QSplitter(Qt::Horizontal, this);
    m_catalogue = new TWActionCatalogue(splitter);
    connect(m_catalogue, &TWActionCatalogue::actionChosen, this,
            [this](const QString& className) { insertAction(className, m_editor.count()); });

    auto* side = new QWidget(splitter);
    auto* sideLayout = new QVBoxLayout(side);
    sideLayout->setContentsMargins(0, 0, 0, 0);
    m_scroll = new QScrollArea(side);
    m_scroll->setWidgetResizable(true);
    m_scroll->setAccessibleName(QStringLiteral("Workflow"));
    auto* list = new QWidget(m_scroll);
    m_list = new QVBoxLayout(list);
    m_list->addStretch();
    m_scroll->setWidget(list);
    sideLayout->addWidget(m_scroll, 1);
    auto* bar = new QHBoxLayout;
    bar->addStretch();
    m_run = new QPushButton(QStringLiteral("Run"), side);
    m_run->setAccessibleName(QStringLiteral("Run workflow"));
    bar->addWidget(m_run);
    sideLayout->addLayout(bar);
    splitter->setStretchFactor(1, 1);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(splitter);

    connect(m_run, &QPushButton::clicked, this, &TWWorkflowEditorView::run);
    connect(&m_runs, &TWRunController::workingChanged, this, &TWWorkflowEditorView::updateRunButton);
    reload();
}

TWWorkflowEditorView::~TWWorkflowEditorView() = default;

void TWWorkflowEditorView::reload() {
    for (TWActionView* view : m_views)
        delete view;
    m_views.clear();
    for (qsizetype i = 0; i < m_editor.count(); ++i)
        m_views.push_back(makeView(i));
    arrange();
    emit previewsChanged();
}

TWActionView* TWWorkflowEditorView::insertAction(const QString& className, qsizetype index) {
    index = std::clamp<qsizetype>(index, 0, m_editor.count());
    if (!m_editor.insertActionOfClass(className, index)) return nullptr;
    TWActionView* view = makeView(index);
    m_views.insert(m_views.begin() + index, view);
    arrange();
    m_scroll->ensureWidgetVisible(view);
    emit previewsChanged();
    return view;
}

void TWWorkflowEditorView::removeAction(qsizetype index) {
    if (index < 0 || index >= qsizetype(m_views.size())) return;
    // The panel leaves before its action goes; it is deleted once the event loop is back, as its own
    // button asked for the removal.
    TWActionView* view = m_views[size_t(index)];
    m_list->removeWidget(view);
    view->hide();
    view->deleteLater();
    m_views.erase(m_views.begin() + index);
    m_editor.removeAction(index);
    arrange();
    emit previewsChanged();
}

void TWWorkflowEditorView::moveAction(qsizetype index, int by) {
    const qsizetype target = index + by;
    if (index < 0 || index >= m_editor.count() || target < 0 || target >= m_editor.count()) return;
    if (by < 0)
        m_editor.slideUpAction(index, target);
    else
        m_editor.slideDownAction(index, target);
    TWActionView* view = m_views[size_t(index)];
    m_views.erase(m_views.begin() + index);
    m_views.insert(m_views.begin() + target, view);
    arrange();
    emit previewsChanged();
}

void TWWorkflowEditorView::run() {
    if (!m_editor.hasActions() || m_runs.isWorking()) return;
    TWPreferences& preferences = m_runs.context().preferences;
    m_editor.writeToPreferences(preferences);
    (void)preferences.synchronize(); // a lost write costs only the workflow shown at the next start
    m_runs.performInstructions(m_editor.instructions(), true);
}

TWActionView* TWWorkflowEditorView::makeView(qsizetype index) {
    auto* view = new TWActionView(*m_editor.actionAt(index), m_scroll->widget());
    // The view's place may have changed since it was made: it is looked up when it asks.
    const auto indexOf = [this, view] {
        return qsizetype(std::find(m_views.begin(), m_views.end(), view) - m_views.begin());
    };
    connect(view, &TWActionView::removeRequested, this, [this, indexOf] { removeAction(indexOf()); });
    connect(view, &TWActionView::moveRequested, this, [this, indexOf](int by) { moveAction(indexOf(), by); });
    connect(view, &TWActionView::previewChanged, this, &TWWorkflowEditorView::previewsChanged);
    connect(view, &TWActionView::settingsChanged, this, &TWWorkflowEditorView::settingsChanged);
    return view;
}

void TWWorkflowEditorView::arrange() {
    for (TWActionView* view : m_views)
        m_list->removeWidget(view);
    for (size_t i = 0; i < m_views.size(); ++i) {
        m_list->insertWidget(int(i), m_views[i]);
        // Also shows the source anew: the editor gives a new first action the selection for the previous
        // results it cannot have.
        m_views[i]->setFirst(i == 0);
    }
    updateRunButton();
}

void TWWorkflowEditorView::updateRunButton() {
    m_run->setEnabled(m_editor.hasActions() && !m_runs.isWorking());
}

qsizetype TWWorkflowEditorView::dropIndex(const QPoint& position) const {
    const QPoint inList = m_scroll->widget()->mapFrom(this, position);
    qsizetype index = 0;
    for (const TWActionView* view : m_views)
        if (view->geometry().center().y() < inList.y()) ++index;
    return index;
}

void TWWorkflowEditorView::dragEnterEvent(QDragEnterEvent* event) {
    if (event->mimeData()->hasFormat(TWActionCatalogue::kMimeType)) event->acceptProposedAction();
}

void TWWorkflowEditorView::dragMoveEvent(QDragMoveEvent* event) {
    // Over the catalogue a drop would put the action back where it came from.
    const bool overList =
        m_scroll->geometry().contains(m_scroll->parentWidget()->mapFrom(this, event->position().toPoint()));
    if (overList && event->mimeData()->hasFormat(TWActionCatalogue::kMimeType))
        event->acceptProposedAction();
    else
        event->ignore();
}

void TWWorkflowEditorView::dropEvent(QDropEvent* event) {
    const QString className = QString::fromUtf8(event->mimeData()->data(TWActionCatalogue::kMimeType));
    if (insertAction(className, dropIndex(event->position().toPoint()))) event->acceptProposedAction();
}

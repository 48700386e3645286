#include "engine/TWWorkflowEditor.h"

#include "engine/TWActionRegistry.h"

#include "platform/TWPreferences.h"

#include <algorithm>

TWWorkflowEditor::TWWorkflowEditor() = default;
TWWorkflowEditor::~TWWorkflowEditor() = default;

QVariantList TWWorkflowEditor::state() const {
    QVariantList states;
    states.reserve(count());
    for (const auto& action : m_actions)
        states.append(action->state());
    return states;
}

QVariantList TWWorkflowEditor::instructions() const {
    QVariantList list;
    list.reserve(count());
    for (const auto& action : m_actions)
        list.append(action->instructions());
    return list;
}

QStringList TWWorkflowEditor::setState(const QVariantList& states) {
    m_actions.clear();
    return insertWorkflow(states, 0);
}

QStringList TWWorkflowEditor::insertWorkflow(const QVariantList& states, qsizetype index) {
    TWWorkflow workflow = TWWorkflowFile::fromStates(states);
    index = std::clamp<qsizetype>(index, 0, count());
    m_actions.insert(m_actions.begin() + index, std::make_move_iterator(workflow.actions.begin()),
                     std::make_move_iterator(workflow.actions.end()));
    emit actionsChanged();
    return workflow.skippedClasses;
}

TWAction* TWWorkflowEditor::insertActionOfClass(const QString& className, qsizetype index) {
    std::unique_ptr<TWAction> action = TWActionRegistry::make(className);
    if (!action) return nullptr;
    index = std::clamp<qsizetype>(index, 0, count());
    TWAction* inserted = m_actions.insert(m_actions.begin() + index, std::move(action))->get();
    emit actionsChanged();
    return inserted;
}

TWAction* TWWorkflowEditor::addActionOfClass(const QString& className) {
    return insertActionOfClass(className, count());
}

void TWWorkflowEditor::removeAction(qsizetype index) {
    if (index < 0 || index >= count()) return;
    m_actions.erase(m_actions.begin() + index);
    validateActionSources();
    emit actionsChanged();
}

void TWWorkflowEditor::removeAllActions() {
    m_actions.clear();
    emit actionsChanged();
}

void TWWorkflowEditor::slideUpAction(qsizetype index, qsizetype target) {
    if (target < index) moveAction(index, target);
}

void TWWorkflowEditor::slideDownAction(qsizetype index, qsizetype target) {
    if (target > index) moveAction(index, target);
}

void TWWorkflowEditor::moveAction(qsizetype from, qsizetype to) {
    if (from < 0 || from >= count() || to < 0 || to >= count() || from == to) return;
    auto first = m_actions.begin();
    if (from < to)
        std::rotate(first + from, first + from + 1, first + to + 1);
    else
        std::rotate(first + to, first + from, first + from + 1);
    validateActionSources();
    emit actionsChanged();
}

void TWWorkflowEditor::validateActionSources() {
    if (!m_actions.empty() && m_actions.front()->source() == TWSource::PreviousResults)
        m_actions.front()->setSource(TWSource::Selection);
}

bool TWWorkflowEditor::isFirstAction(const TWAction* action) const {
    return action && !m_actions.empty() && m_actions.front().get() == action;
}

TWAction* TWWorkflowEditor::actionAt(qsizetype index) const {
    return index >= 0 && index < count() ? m_actions[size_t(index)].get() : nullptr;
}

qsizetype TWWorkflowEditor::indexOf(const TWAction* action) const {
    for (qsizetype i = 0; i < count(); ++i)
        if (m_actions[size_t(i)].get() == action) return i;
    return -1;
}

LXStatus TWWorkflowEditor::saveWorkflow(const QString& path) const {
    return TWWorkflowFile::write(path, state());
}

TWWorkflow TWWorkflowEditor::openWorkflow(const QString& path) {
    TWWorkflow workflow = TWWorkflowFile::read(path);
    m_actions = std::move(workflow.actions);
    workflow.actions.clear();
    emit actionsChanged();
    return workflow;
}

qsizetype TWWorkflowEditor::insertWorkflowFiles(const QStringList& paths, qsizetype index) {
    index = std::clamp<qsizetype>(index, 0, count());
    qsizetype inserted = 0;
    for (const QString& path : paths) {
        TWWorkflow workflow = TWWorkflowFile::read(path);
        const auto added = qsizetype(workflow.actions.size());
        m_actions.insert(m_actions.begin() + index + inserted,
                         std::make_move_iterator(workflow.actions.begin()),
                         std::make_move_iterator(workflow.actions.end()));
        inserted += added;
    }
    if (inserted > 0) emit actionsChanged();
    return inserted;
}

void TWWorkflowEditor::writeToPreferences(TWPreferences& preferences) const {
    preferences.setValue(kWorkflowKey, state());
}

QStringList TWWorkflowEditor::readFromPreferences(const TWPreferences& preferences) {
    return setState(preferences.value(kWorkflowKey).toList());
}

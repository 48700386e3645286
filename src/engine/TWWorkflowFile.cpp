#include "engine/TWWorkflowFile.h"

#include "engine/TWActionRegistry.h"

#include "platform/TWPropertyList.h"

#include <QFileInfo>

QVariantList TWWorkflow::state() const {
    QVariantList states;
    states.reserve(qsizetype(actions.size()));
    for (const auto& action : actions)
        states.append(action->state());
    return states;
}

QVariantList TWWorkflow::instructions() const {
    QVariantList list;
    list.reserve(qsizetype(actions.size()));
    for (const auto& action : actions)
        list.append(action->instructions());
    return list;
}

namespace TWWorkflowFile {

bool hasWorkflowExtension(const QString& path) {
    return QFileInfo(path).suffix() == kExtension;
}

LXResult<QVariantList> readStates(const QString& path) {
    auto root = TWPropertyList::readFile(path);
    if (!root) return root.error();
    if (root->typeId() != QMetaType::QVariantList)
        return LXError(LXErrDamaged,
                       QStringLiteral("not a workflow: the property list holds a %1, not a list of actions")
                           .arg(QLatin1String(root->typeName())),
                       path);
    return root->toList();
}

TWWorkflow read(const QString& path) {
    auto states = readStates(path);
    if (!states) {
        TWWorkflow empty;
        empty.message = states.error().description();
        return empty;
    }
    return fromStates(*states);
}

TWWorkflow fromStates(const QVariantList& states) {
    TWWorkflow workflow;
    for (const QVariant& element : states) {
        // A dictionary that names no class is skipped like an unknown class: there is nothing to make.
        const QVariantMap state = element.toMap();
        const QString className = state.value(QStringLiteral("class")).toString();
        std::unique_ptr<TWAction> action =
            element.typeId() == QMetaType::QVariantMap ? TWActionRegistry::make(className) : nullptr;
        if (!action) {
            workflow.skippedClasses.append(className);
            continue;
        }
        action->setState(state);
        workflow.actions.push_back(std::move(action));
    }
    return workflow;
}

QVariantList instructionsFromStates(const QVariantList& states) {
    return fromStates(states).instructions();
}

LXStatus write(const QString& path, const QVariantList& states) {
    return TWPropertyList::writeFile(path, states);
}

} // namespace TWWorkflowFile

#include "model/TWGroupEntry.h"

#include "model/TWClipwrightDocument.h"
#include "model/TWEntryFactory.h"
#include "model/TWFileEntry.h"

#include <QFileInfo>

TWGroupEntry::TWGroupEntry() : m_name(QStringLiteral("New Group")) {
    m_isLeaf = false;
    m_containerIsImmutable = false;
}

std::shared_ptr<TWGroupEntry> TWGroupEntry::createWithEntry(TWEntry& entry) {
    auto group = std::make_shared<TWGroupEntry>();
    group->setName(entry.name());
    // Taken directly: the entry may be an immutable folder or smart group, which ignores removals.
    group->insertEntries(entry.takeAllEntries(), 0);
    return group;
}

std::shared_ptr<TWGroupEntry> TWGroupEntry::createWithClipwrightDocument(const QString& path) {
    const LXResult<QStringList> paths = TWReadClipwrightDocument(path);
    if (!paths) {
        qWarning("%s", qPrintable(paths.error().description()));
        return nullptr;
    }
    auto group = std::make_shared<TWGroupEntry>();
    group->setName(QFileInfo(path).completeBaseName());
    for (const QString& filePath : *paths)
        if (TWFileEntryPtr file = TWFileEntry::create(filePath)) group->addEntry(file);
    return group;
}

void TWGroupEntry::setName(const QString& name) {
    if (!name.isNull()) m_name = name;
}

void TWGroupEntry::refresh() {
    for (const TWEntryPtr& child : QList<TWEntryPtr>(entries()))
        child->refresh();
}

QVariantMap TWGroupEntry::state() const {
    QVariantMap state = TWEntry::state();
    state.insert(QStringLiteral("name"), m_name);
    QVariantList children;
    children.reserve(entryCount());
    for (const TWEntryPtr& child : entries())
        children.append(child->state());
    state.insert(QStringLiteral("entries"), children);
    return state;
}

void TWGroupEntry::setState(const QVariantMap& state) {
    // Built apart, then added in one change: the children's own state is not told piece by piece.
    const QVariantList stored = state.value(QStringLiteral("entries")).toList();
    QList<TWEntryPtr> children;
    children.reserve(stored.size());
    for (const QVariant& child : stored)
        if (TWEntryPtr entry = TWEntryFactory::entryFromState(child.toMap(), this)) children.append(entry);
    insertEntries(children, -1);
    const QVariant name = state.value(QStringLiteral("name"));
    if (name.typeId() == QMetaType::QString) setName(name.toString());
}

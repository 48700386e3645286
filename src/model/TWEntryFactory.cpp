#include "model/TWEntryFactory.h"

#include "model/TWFileEntry.h"
#include "model/TWFolderEntry.h"
#include "model/TWGroupEntry.h"
#include "model/TWServerEntry.h"
#include "model/TWSmartGroupEntry.h"

#include <QHash>

#include <functional>

namespace {

const QHash<QString, std::function<TWEntryPtr()>>& registry() {
    static const QHash<QString, std::function<TWEntryPtr()>> classes = {
        {QStringLiteral("TWFileEntry"), [] { return std::make_shared<TWFileEntry>(); }},
        {QStringLiteral("TWFolderEntry"), [] { return std::make_shared<TWFolderEntry>(); }},
        {QStringLiteral("TWGroupEntry"), [] { return std::make_shared<TWGroupEntry>(); }},
        {QStringLiteral("TWServerEntry"), [] { return std::make_shared<TWServerEntry>(); }},
        {QStringLiteral("TWSmartGroupEntry"), [] { return std::make_shared<TWSmartGroupEntry>(); }},
    };
    return classes;
}

} // namespace

namespace TWEntryFactory {

TWEntryPtr createEntry(const QString& className) {
    const auto it = registry().constFind(className);
    return it == registry().cend() ? nullptr : (*it)();
}

TWEntryPtr entryFromState(const QVariantMap& state, TWEntry* parent) {
    const QString className = state.value(QStringLiteral("Class")).toString();
    TWEntryPtr entry = createEntry(className);
    if (!entry) {
        qWarning("The file list holds an entry of the unknown class \"%s\"; it is left out.",
                 qPrintable(className));
        return nullptr;
    }
    entry->setParent(parent);
    entry->setState(state);
    return entry;
}

QStringList classNames() {
    QStringList names = registry().keys();
    names.sort();
    return names;
}

} // namespace TWEntryFactory

#include "engine/TWActionRegistry.h"

#include <QMutex>

namespace {

struct Registry {
    QMutex mutex;
    QStringList names;
    QHash<QString, TWActionRegistry::Factory> factories;
};

Registry& registry() {
    static Registry instance;
    return instance;
}

} // namespace

namespace TWActionRegistry {

void registerClass(const QString& className, Factory factory) {
    Registry& r = registry();
    QMutexLocker lock(&r.mutex);
    if (!r.factories.contains(className)) r.names.append(className);
    r.factories.insert(className, std::move(factory));
}

std::unique_ptr<TWAction> make(const QString& className) {
    Registry& r = registry();
    QMutexLocker lock(&r.mutex);
    const auto it = r.factories.constFind(className);
    return it == r.factories.constEnd() ? nullptr : (*it)();
}

bool isRegistered(const QString& className) {
    Registry& r = registry();
    QMutexLocker lock(&r.mutex);
    return r.factories.contains(className);
}

QStringList classNames() {
    Registry& r = registry();
    QMutexLocker lock(&r.mutex);
    return r.names;
}

} // namespace TWActionRegistry

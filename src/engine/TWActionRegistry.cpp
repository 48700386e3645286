#include "engine/TWActionRegistry.h"

#include <QDir>
#include <QFileInfo>
#include <QMutex>

namespace {

struct Registry {
    QMutex mutex;
    QStringList names;
    QHash<QString, TWActionRegistry::Factory> factories;
    QHash<QString, QString> families;
};

Registry& registry() {
    static Registry instance;
    return instance;
}

} // namespace

namespace TWActionRegistry {

void registerClass(const QString& className, Factory factory, const QString& family) {
    Registry& r = registry();
    QMutexLocker lock(&r.mutex);
    if (!r.factories.contains(className)) r.names.append(className);
    r.factories.insert(className, std::move(factory));
    r.families.insert(className, family);
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

QString family(const QString& className) {
    Registry& r = registry();
    QMutexLocker lock(&r.mutex);
    return r.families.value(className);
}

QString familyOfSourceFile(const char* path) {
    return QFileInfo(QString::fromUtf8(path)).dir().dirName();
}

} // namespace TWActionRegistry

#pragma once

#include "engine/TWAction.h"

#include <QStringList>

#include <functional>
#include <memory>

// Makes actions by class name, as workflow files, the editor and the work thread name them. Each action
// registers itself where it is defined (TW_REGISTER_ACTION), before main runs; an unknown name makes
// nothing.
namespace TWActionRegistry {

using Factory = std::function<std::unique_ptr<TWAction>()>;

void registerClass(const QString& className, Factory factory);
template <typename T> void registerClass() {
    registerClass(T().className(), [] { return std::make_unique<T>(); });
}
std::unique_ptr<TWAction> make(const QString& className); // nullptr when unknown
bool isRegistered(const QString& className);
QStringList classNames(); // in the order registered

} // namespace TWActionRegistry

// Registers an action class when the program loads: `TW_REGISTER_ACTION(TWActionReverse);` at namespace
// scope in the action's own file. The actions library is linked as objects, so no registration is dropped.
#define TW_REGISTER_ACTION(Class)                                                                            \
    namespace {                                                                                              \
    const bool Class##_registered = (TWActionRegistry::registerClass<Class>(), true);                        \
    }

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

// family: the folder of actions the class belongs to ("level", "edit"), as the action catalogue groups
// them; empty for a class registered from elsewhere.
void registerClass(const QString& className, Factory factory, const QString& family = {});
template <typename T> void registerClass(const QString& family = {}) {
    registerClass(
        T().className(), [] { return std::make_unique<T>(); }, family);
}
std::unique_ptr<TWAction> make(const QString& className); // nullptr when unknown
bool isRegistered(const QString& className);
QStringList classNames();                 // in the order registered
QString family(const QString& className); // empty when unknown
// The name of the folder holding a source file: src/actions/level/TWLevelActions.cpp is "level".
QString familyOfSourceFile(const char* path);

} // namespace TWActionRegistry

// Registers an action class when the program loads: `TW_REGISTER_ACTION(TWActionReverse);` at namespace
// scope in the action's own file, whose folder names its family. The actions library is linked as objects,
// so no registration is dropped.
#define TW_REGISTER_ACTION(Class)                                                                            \
    namespace {                                                                                              \
    const bool Class##_registered =                                                                          \
        (TWActionRegistry::registerClass<Class>(TWActionRegistry::familyOfSourceFile(__FILE__)), true);      \
    }

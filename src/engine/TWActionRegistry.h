#pragma once

#include "engine/TWAction.h"

#include <QStringList>

#include <functional>
#include <memory>

// Makes actions by class name, as workflow files, the editor and the work thread name them. The actions
// layer registers its classes at start-up (TWRegisterActions); an unknown name makes nothing.
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

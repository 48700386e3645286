#pragma once

// An action's panel driven headless, as the window drives it: controls found by kind and key.

#include "engine/TWAction.h"
#include "engine/TWActionRegistry.h"

#include <gtest/gtest.h>

#include <memory>

struct Panel {
    explicit Panel(const char* className) : action(TWActionRegistry::make(className)), model(*action) {}

    // The control of that kind that shows the key.
    qsizetype find(TWControlKind kind, const QString& key) const {
        for (qsizetype i = 0; i < model.controls().size(); ++i)
            if (model.controls()[i].kind == kind && model.controls()[i].key == key) return i;
        ADD_FAILURE() << "no control for " << key.toStdString();
        return 0;
    }
    QString text(TWControlKind kind, const QString& key) const { return model.text(find(kind, key)); }
    QVariant value(TWControlKind kind, const QString& key) const { return model.value(find(kind, key)); }
    void set(TWControlKind kind, const QString& key, const QVariant& value) { model.setValue(find(kind, key), value); }
    QVariant instruction(const QString& key) const { return action->instructions().value(key); }

    std::unique_ptr<TWAction> action;
    TWPanelModel model;
};

#pragma once

#include "model/TWEntry.h"

// A container kept for remote locations: it keeps its children sorted and stores nothing of its own.
// The file commands never make one; it comes back only from stored state.
class TWServerEntry : public TWEntry {
public:
    TWServerEntry();

    QString className() const override { return QStringLiteral("TWServerEntry"); }
    QString image() const override { return QStringLiteral("entry_server"); }

    void refresh() override; // sorts the children with the file table's sort order
    void setState(const QVariantMap&) override {}
};

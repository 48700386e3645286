#pragma once

#include "model/TWEntry.h"

// A named collection the user fills and orders freely. The workspace's root is a group named "root".
class TWGroupEntry : public TWEntry {
public:
    TWGroupEntry(); // empty, named "New Group"
    // A group with the other entry's name that adopts its children (turns a folder or smart group into
    // a plain group). The other entry is left without children.
    static std::shared_ptr<TWGroupEntry> createWithEntry(TWEntry& entry);
    // A group named after an old ".clipwright" file list, holding its admitted audio files; nullptr when
    // the document cannot be read or holds no file list.
    static std::shared_ptr<TWGroupEntry> createWithClipwrightDocument(const QString& path);

    QString className() const override { return QStringLiteral("TWGroupEntry"); }

    QString name() const override { return m_name; }
    void setName(const QString& name) override; // a null string keeps the name
    QString image() const override { return QStringLiteral("entry_group"); }

    void refresh() override;

    QVariantMap state() const override;
    // Rebuilds the children from "entries" (an unknown "Class" is skipped with a warning) and the name.
    void setState(const QVariantMap& state) override;

private:
    QString m_name;
};

#pragma once

#include "model/TWEntry.h"

#include <atomic>

// A directory on disk. Its children are the audio files and subfolders the directory holds, read again
// on every refresh; the user cannot add or remove them by hand.
class TWFolderEntry : public TWEntry {
public:
    TWFolderEntry(); // not yet read: give it a path, then refresh
    static std::shared_ptr<TWFolderEntry> create(const QString& path); // with the path, refreshed

    QString className() const override { return QStringLiteral("TWFolderEntry"); }

    // The children follow: each gets the new folder path joined with its own file name (not re-read).
    void setPath(const QString& path) override;
    QString name() const override;
    QString image() const override { return QStringLiteral("entry_folder"); }
    TWEntryColor color() const override;
    float status() const override {
        return m_status.load(std::memory_order_relaxed);
    } // 0, or -1 when missing

    void refresh() override;
    void moveToPath(const QString& directory) override;
    void copyToPath(const QString& directory, TWEntry* group) override;
    void moveToTrash() override;
    LXStatus deleteFiles() override; // the directory and everything in it, without asking
    void openInFinder() override;
    void showInFinder() override;

    QVariantMap state() const override;
    void setState(const QVariantMap& state) override;

private:
    std::atomic<float> m_status{0.0f};
};

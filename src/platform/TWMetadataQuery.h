#pragma once
#include "platform/TWMetadataIndex.h"
#include "platform/TWPredicate.h"

#include <QObject>
#include <QString>
#include <QStringList>
#include <memory>
#include <optional>
#include <thread>

// A query of the metadata index in the shape smart groups use: a predicate, search scopes, start, and
// a signal when the results are in. start() brings the index up to date for the scopes (incrementally:
// only new and changed files are read) and runs the predicate, both on a background thread.
// Use one object from one thread (its own), which needs a running event loop for didFinishGathering.
class TWMetadataQuery : public QObject {
    Q_OBJECT
public:
    explicit TWMetadataQuery(QObject* parent = nullptr);
    ~TWMetadataQuery() override; // stops a running gathering and waits for its thread
    bool setPredicate(const QString& text, QString* error = nullptr); // false when the text does not parse
    void setSearchScopes(const QStringList& directories);
    void start(); // gathers on a background thread; didFinishGathering is emitted on this object's thread
    void stop();  // cancels a gathering: its didFinishGathering never comes; waits at most for one file
    bool isGathering() const;
    QStringList results() const; // paths found, valid after didFinishGathering

    // The index used by the next start(); TWMetadataIndex::defaultDatabasePath() unless set.
    void setDatabasePath(const QString& path);
    // Why the last gathering found nothing (the index could not be opened, no predicate); empty when it
    // succeeded. Valid after didFinishGathering.
    QString lastError() const;
    // What the last gathering's scans did, summed over the scopes.
    TWIndexScanStatistics lastScanStatistics() const;

signals:
    void didFinishGathering();

private:
    struct Job;
    struct Outcome;
    void finish(quint64 generation, const std::shared_ptr<Outcome>& outcome);
    void joinThread();

    std::optional<TWPredicate> m_predicate;
    QStringList m_scopes;
    QString m_databasePath;
    QStringList m_results;
    QString m_error;
    TWIndexScanStatistics m_statistics;
    std::shared_ptr<Job> m_job;
    // A std::thread rather than a QThread: its join is one ThreadSanitizer sees, so the hand-over of
    // the results is visibly ordered.
    std::thread m_thread;
    quint64 m_generation = 0; // a finished gathering reports only if no start() or stop() came since
    bool m_gathering = false;
};

#include "platform/TWMetadataQuery.h"

#include "platform/TWHandOver.h"

#include <atomic>

struct TWMetadataQuery::Outcome {
    QStringList results;
    QString error;
    TWIndexScanStatistics statistics;
};

// What the background thread works on: its own copies, so that the object may change or go away.
struct TWMetadataQuery::Job {
    std::atomic<bool> cancel{false};
    QString databasePath;
    QStringList scopes;
    std::optional<TWPredicate> predicate;

    std::shared_ptr<Outcome> run() const {
        auto outcome = std::make_shared<Outcome>();
        if (!predicate) {
            outcome->error = QStringLiteral("The query has no predicate");
            return outcome;
        }
        TWMetadataIndex index(databasePath);
        TWIndexScanStatistics& total = outcome->statistics;
        for (const QString& scope : scopes) {
            auto scanned = index.scan(scope, &cancel);
            if (!scanned) {
                outcome->error = scanned.error().description();
                return outcome;
            }
            total.files += scanned->files;
            total.directories += scanned->directories;
            total.updated += scanned->updated;
            total.opened += scanned->opened;
            total.removed += scanned->removed;
            if (scanned->cancelled || cancel.load()) {
                total.cancelled = true;
                return outcome;
            }
        }
        auto found = index.search(*predicate, scopes);
        if (!found)
            outcome->error = found.error().description();
        else
            outcome->results = std::move(*found);
        return outcome;
    }
};

TWMetadataQuery::TWMetadataQuery(QObject* parent) : QObject(parent) {}

TWMetadataQuery::~TWMetadataQuery() {
    stop();
}

bool TWMetadataQuery::setPredicate(const QString& text, QString* error) {
    auto parsed = TWPredicate::parse(text);
    if (!parsed) {
        if (error) *error = parsed.error().message();
        return false;
    }
    m_predicate = std::move(*parsed);
    return true;
}

void TWMetadataQuery::setSearchScopes(const QStringList& directories) {
    m_scopes = directories;
}

void TWMetadataQuery::setDatabasePath(const QString& path) {
    m_databasePath = path;
}

void TWMetadataQuery::start() {
    stop();
    const quint64 generation = ++m_generation;
    m_results.clear();
    m_error.clear();
    m_statistics = {};
    m_gathering = true;

    auto job = std::make_shared<Job>();
    job->databasePath = m_databasePath.isEmpty() ? TWMetadataIndex::defaultDatabasePath() : m_databasePath;
    job->scopes = m_scopes;
    job->predicate = m_predicate;
    m_job = job;
    m_thread = std::thread([this, job, generation] {
        std::shared_ptr<Outcome> outcome = job->run();
        if (job->cancel.load()) return;
        // The destructor joins this thread before the object goes, and a destroyed object's queued
        // calls are dropped, so `this` is safe here.
        TWHandOver(this, [this, generation, outcome] { finish(generation, outcome); });
    });
}

void TWMetadataQuery::stop() {
    if (m_job) m_job->cancel.store(true);
    joinThread();
    if (m_gathering) {
        ++m_generation; // a finish already queued must not report
        m_gathering = false;
    }
}

void TWMetadataQuery::joinThread() {
    if (m_thread.joinable()) m_thread.join();
    m_job.reset();
}

void TWMetadataQuery::finish(quint64 generation, const std::shared_ptr<Outcome>& outcome) {
    if (generation != m_generation || !m_gathering) return;
    joinThread();
    m_results = outcome->results;
    m_error = outcome->error;
    m_statistics = outcome->statistics;
    m_gathering = false;
    emit didFinishGathering();
}

bool TWMetadataQuery::isGathering() const {
    return m_gathering;
}

QStringList TWMetadataQuery::results() const {
    return m_results;
}

QString TWMetadataQuery::lastError() const {
    return m_error;
}

TWIndexScanStatistics TWMetadataQuery::lastScanStatistics() const {
    return m_statistics;
}

#pragma once

#include "model/TWEntry.h"

#include "lx/LXResult.h"

#include <QVariantList>

#include <atomic>
#include <memory>

class QTimer;
class TWMetadataQuery;

// A container filled by a query of the file metadata index: every audio file found under the search
// scope ("path") that matches the criteria. Lives on the main thread (the query's notice and the
// spinner's timer arrive there).
//
// A criterion is a dictionary {"key": attribute, "comparator": operator, "value": text}.
class TWSmartGroupEntry : public TWEntry {
public:
    TWSmartGroupEntry(); // "New Smart Group", one criterion Name contains "bongo", the home directory
    ~TWSmartGroupEntry() override;

    QString className() const override { return QStringLiteral("TWSmartGroupEntry"); }

    QString name() const override { return m_name; }
    void setName(const QString& name) override;
    QString image() const override { return QStringLiteral("entry_smart_group"); }
    // 0 before the first run, 6.x while the query gathers, 3 when done; -2 when the criteria do not
    // make a query (then lastError() says why and the group has no children).
    float status() const override { return m_status.load(std::memory_order_relaxed); }
    QString lastError() const { return m_lastError; }

    const QVariantList& predicate() const { return m_predicate; }
    void setPredicate(const QVariantList& predicate) { m_predicate = predicate; }
    bool criteriaOperator() const { return m_criteriaOperator; } // true: AND, false: OR
    void setCriteriaOperator(bool conjunction) { m_criteriaOperator = conjunction; }
    bool liveUpdates() const { return m_liveUpdates; }
    void setLiveUpdates(bool liveUpdates) { m_liveUpdates = liveUpdates; }

    // The query text the criteria make, e.g.
    // (Name LIKE[cd] '*drum*') AND (AudioSampleRate > '44100') && (kMDItemContentTypeTree = "public.audio")
    // An error for a criterion whose key or operator is not one the query language knows.
    LXResult<QString> queryText() const;
    static LXResult<QString> queryText(const QVariantList& predicate, bool conjunction);

    void refresh() override; // runs the query again only with live updates on
    void refreshSmartGroup();
    bool isGathering() const;
    void updateProgress(); // the spinner's tick
    void queryEnd();       // the query finished gathering

    QVariantMap state() const override;
    void setState(const QVariantMap& state) override; // then runs the query

private:
    void stopProgressTimer();

    QString m_name;
    QVariantList m_predicate;
    std::unique_ptr<TWMetadataQuery> m_query;
    bool m_criteriaOperator = false;
    std::atomic<float> m_status{0.0f};
    bool m_liveUpdates = true;
    std::unique_ptr<QTimer> m_progressTimer;
    QString m_lastError;
};

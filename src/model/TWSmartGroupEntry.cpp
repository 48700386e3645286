#include "model/TWSmartGroupEntry.h"

#include "model/TWFileEntry.h"
#include "model/TWFolderEntry.h"
#include "model/TWWorkspace.h"
#include "platform/TWMetadataQuery.h"
#include "platform/TWSupportFolders.h"

#include "lx/LXFile.h"

#include <QDir>
#include <QRegularExpression>
#include <QSet>
#include <QTimer>

#include <cmath>

namespace {

const QString kKey = QStringLiteral("key");
const QString kComparator = QStringLiteral("comparator");
const QString kValue = QStringLiteral("value");

// A value inside '...': the query language takes \' and \\ as escapes.
QString escapedValue(const QString& value) {
    QString escaped = value;
    escaped.replace(u'\\', QStringLiteral("\\\\")).replace(u'\'', QStringLiteral("\\'"));
    return escaped;
}

} // namespace

TWSmartGroupEntry::TWSmartGroupEntry()
    : m_name(QStringLiteral("New Smart Group")),
      m_predicate({QVariantMap{{kKey, QStringLiteral("Name")},
                               {kComparator, QStringLiteral("LIKE[cd]")},
                               {kValue, QStringLiteral("bongo")}}}),
      m_query(std::make_unique<TWMetadataQuery>()) {
    m_isLeaf = false;
    m_containerIsImmutable = true;
    TWEntry::setPath(QDir::homePath());
    // The query lives and dies with this entry, so the connection cannot outlive it.
    QObject::connect(m_query.get(), &TWMetadataQuery::didFinishGathering, m_query.get(),
                     [this] { queryEnd(); });
}

TWSmartGroupEntry::~TWSmartGroupEntry() {
    stopProgressTimer();
    m_query->disconnect();
    m_query->stop();
}

void TWSmartGroupEntry::setName(const QString& name) {
    if (!name.isNull()) m_name = name;
}

LXResult<QString> TWSmartGroupEntry::queryText(const QVariantList& predicate, bool conjunction) {
    // Keys and operators go into the text as they stand, so only known ones do: a stored or typed
    // criterion must not be able to change the query around it. Values are quoted and escaped.
    static const QRegularExpression operatorText(QStringLiteral("^([A-Za-z]+(\\[[cd]+\\])?|[=!<>]{1,2})$"));
    const QStringList keys = TWQueryKeys::keys();
    QString text;
    for (const QVariant& item : predicate) {
        const QVariantMap criterion = item.toMap();
        const QString key = criterion.value(kKey).toString();
        const QString comparator = criterion.value(kComparator).toString();
        if (!keys.contains(key))
            return LXError(LXErrInvalidParameter, QStringLiteral("unknown key '%1'").arg(key));
        if (!operatorText.match(comparator).hasMatch())
            return LXError(LXErrInvalidParameter, QStringLiteral("'%1' is not an operator").arg(comparator));
        QString value = escapedValue(criterion.value(kValue).toString());
        if (comparator == QLatin1String("LIKE[cd]")) value = u'*' + value + u'*';
        if (!text.isEmpty()) text += conjunction ? QStringLiteral(" AND ") : QStringLiteral(" OR ");
        text += QStringLiteral("(%1 %2 '%3')").arg(key, comparator, value);
    }
    // Only audio files, whatever the criteria. Without parentheses around the criteria this binds to the
    // last criterion alone when they are joined with OR; stored groups rely on that reading.
    text += QStringLiteral(" && (kMDItemContentTypeTree = \"public.audio\")");
    return text;
}

LXResult<QString> TWSmartGroupEntry::queryText() const {
    return queryText(m_predicate, m_criteriaOperator);
}

void TWSmartGroupEntry::refresh() {
    if (m_liveUpdates) refreshSmartGroup();
}

void TWSmartGroupEntry::refreshSmartGroup() {
    QString error;
    if (m_query->isGathering()) m_query->stop();
    const LXResult<QString> text = queryText();
    if (!text) error = text.error().message();
    if (!text || !m_query->setPredicate(*text, &error)) {
        // Criteria that make no query find nothing; the status column marks the group as bad.
        m_lastError = error.isEmpty() ? QStringLiteral("The criteria do not make a query.") : error;
        qWarning("Smart group \"%s\": %s", qPrintable(m_name), qPrintable(m_lastError));
        stopProgressTimer();
        replaceEntries({});
        m_status.store(-2.0f, std::memory_order_relaxed);
        TWWorkspace::workspace().reloadEntryAndChildren(this);
        return;
    }
    m_lastError.clear();
    m_query->setSearchScopes({path()});
    m_query->start();
    m_status.store(6.0f, std::memory_order_relaxed);
    if (!m_progressTimer) {
        m_progressTimer = std::make_unique<QTimer>();
        m_progressTimer->setInterval(250);
        QObject::connect(m_progressTimer.get(), &QTimer::timeout, m_progressTimer.get(),
                         [this] { updateProgress(); });
        m_progressTimer->start();
    }
}

bool TWSmartGroupEntry::isGathering() const {
    return m_query->isGathering();
}

void TWSmartGroupEntry::updateProgress() {
    // One twelfth of a turn a tick, counted in whole ticks so rounding never skips or adds a step.
    const float status = m_status.load(std::memory_order_relaxed);
    const int tick = int(std::lround((status - 6.0f) * 12.0f)) + 1;
    m_status.store(tick >= 12 || tick < 0 ? 6.0f : 6.0f + float(tick) / 12.0f, std::memory_order_relaxed);
    TWWorkspace::workspace().reloadEntry(this);
}

void TWSmartGroupEntry::stopProgressTimer() {
    if (m_progressTimer) {
        m_progressTimer->stop();
        m_progressTimer.reset();
    }
}

void TWSmartGroupEntry::queryEnd() {
    const QStringList results = m_query->results();
    const QSet<QString> found(results.cbegin(), results.cend());

    QSet<QString> childPaths;
    for (const TWEntryPtr& child : entries())
        childPaths.insert(child->path());
    QStringList newPaths;
    for (const QString& result : results) {
        if (!childPaths.contains(result)) {
            childPaths.insert(result);
            newPaths.append(result);
        }
    }

    // Children still found stay (the same objects) and are refreshed where they stand; the others go
    // and the new ones come in one change of this group's children.
    QList<TWEntryPtr> children = entries();
    children.removeIf([&](const TWEntryPtr& child) { return !found.contains(child->path()); });
    for (const TWEntryPtr& child : std::as_const(children))
        child->refresh();

    // The application's own working files (undo copies, temporary files) are never shown.
    QString support = TWSupportFolders::supportDirectory();
    if (!support.endsWith(u'/')) support += u'/';
    QSet<QString> present;
    for (const TWEntryPtr& child : std::as_const(children))
        present.insert(child->path());
    for (const QString& newPath : std::as_const(newPaths)) {
        bool isDirectory = false;
        if (!LXFile::existsAtPath(newPath, &isDirectory) || newPath.startsWith(support)) continue;
        // A member of a split set stands for the set, which may already be here under its lead member.
        if (!isDirectory && present.contains(TWFileEntry::storedPath(newPath))) continue;
        TWEntryPtr entry = isDirectory ? TWEntryPtr(TWFolderEntry::create(newPath))
                                       : TWEntryPtr(TWFileEntry::create(newPath));
        if (!entry) continue;
        present.insert(entry->path());
        children.append(entry);
    }

    stopProgressTimer();
    m_status.store(3.0f, std::memory_order_relaxed);
    // Folders found sorted themselves when they were read.
    sortEntries(children, TWWorkspace::workspace().sortDescriptors());
    replaceEntries(children);
    TWWorkspace::workspace().reloadEntryAndChildren(this);
}

QVariantMap TWSmartGroupEntry::state() const {
    QVariantMap state = TWEntry::state();
    state.insert(QStringLiteral("name"), m_name);
    state.insert(QStringLiteral("scope"), path());
    state.insert(QStringLiteral("predicate"), m_predicate);
    state.insert(QStringLiteral("criteriaOperator"), m_criteriaOperator);
    state.insert(QStringLiteral("liveUpdates"), m_liveUpdates);
    return state;
}

void TWSmartGroupEntry::setState(const QVariantMap& state) {
    if (const QVariant name = state.value(QStringLiteral("name")); name.typeId() == QMetaType::QString)
        setName(name.toString());
    if (const QVariant scope = state.value(QStringLiteral("scope")); scope.typeId() == QMetaType::QString)
        TWEntry::setPath(scope.toString());
    if (const QVariant predicate = state.value(QStringLiteral("predicate")); predicate.isValid())
        m_predicate = predicate.toList();
    if (const QVariant conjunction = state.value(QStringLiteral("criteriaOperator")); conjunction.isValid())
        m_criteriaOperator = conjunction.toBool();
    if (const QVariant live = state.value(QStringLiteral("liveUpdates")); live.isValid())
        m_liveUpdates = live.toBool();
    refreshSmartGroup();
}

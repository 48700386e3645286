#include "lx/LXLabel.h"

#include <algorithm>
#include <limits>

void LXLabelList::addMarkerWithPosition(double seconds, const QString& name) {
    m_labels.append({m_kind, seconds, 0.0, name});
}

void LXLabelList::addSliceWithPosition(double seconds) {
    m_labels.append({m_kind, seconds, 0.0, {}});
}

void LXLabelList::addRegionWithRange(const LXRange& range, const QString& name) {
    m_labels.append({m_kind, range.start(), range.length(), name});
}

void LXLabelList::addLoopWithType(LXLoopType type, const LXRange& range, int playCount) {
    LXLabel label{m_kind, range.start(), range.length(), {}};
    label.loopType = type;
    label.playCount = playCount;
    m_labels.append(label);
}

void LXLabelList::addLabel(const LXLabel& label) {
    LXLabel copy = label;
    copy.kind = m_kind;
    if (m_kind == LXLabelKind::Marker || m_kind == LXLabelKind::Slice) copy.length = 0.0;
    m_labels.append(copy);
}

void LXLabelList::addLabels(const LXLabelList& other) {
    for (const LXLabel& label : other.m_labels)
        addLabel(label);
}

void LXLabelList::removeAtPosition(double seconds) {
    m_labels.removeIf([seconds](const LXLabel& label) { return label.start == seconds; });
}

void LXLabelList::removeDuplicates() {
    QList<LXLabel> kept;
    for (const LXLabel& label : m_labels) {
        const bool seen = std::any_of(kept.begin(), kept.end(), [&](const LXLabel& k) {
            return k.start == label.start && k.length == label.length;
        });
        if (!seen) kept.append(label);
    }
    m_labels = kept;
}

void LXLabelList::shift(double seconds) {
    for (LXLabel& label : m_labels)
        label.start += seconds;
}

void LXLabelList::mirror(double length) {
    for (LXLabel& label : m_labels)
        label.start = length - label.end();
    std::reverse(m_labels.begin(), m_labels.end());
}

void LXLabelList::scale(double factor) {
    for (LXLabel& label : m_labels) {
        label.start *= factor;
        label.length *= factor;
    }
}

void LXLabelList::sortByPosition() {
    std::stable_sort(m_labels.begin(), m_labels.end(),
                     [](const LXLabel& a, const LXLabel& b) { return a.start < b.start; });
}

double LXLabelList::firstPosition() const {
    if (m_labels.isEmpty()) return 0.0;
    double first = std::numeric_limits<double>::max();
    for (const LXLabel& label : m_labels)
        first = std::min(first, label.start);
    return first;
}

double LXLabelList::lastPosition() const {
    if (m_labels.isEmpty()) return 0.0;
    double last = std::numeric_limits<double>::lowest();
    for (const LXLabel& label : m_labels)
        last = std::max(last, label.end());
    return last;
}

LXLabelList& LXLabels::list(LXLabelKind kind) {
    switch (kind) {
    case LXLabelKind::Marker:
        return markers;
    case LXLabelKind::Slice:
        return slices;
    case LXLabelKind::Region:
        return regions;
    case LXLabelKind::Loop:
        break;
    }
    return loops;
}

const LXLabelList& LXLabels::list(LXLabelKind kind) const {
    return const_cast<LXLabels*>(this)->list(kind);
}

void LXLabels::mirror(double length) {
    for (LXLabelList* list : {&markers, &slices, &regions, &loops})
        list->mirror(length);
}

void LXLabels::scale(double factor) {
    for (LXLabelList* list : {&markers, &slices, &regions, &loops})
        list->scale(factor);
}

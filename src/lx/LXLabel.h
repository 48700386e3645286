#pragma once

#include "lx/LXRange.h"

#include <QList>
#include <QString>

enum class LXLabelKind { Marker = 0, Slice = 1, Region = 2, Loop = 3 };

// Loop play modes as sampler chunks store them.
enum class LXLoopType { Forward = 0, Alternating = 1, Backward = 2 };

// One label of a file. Markers and slices are points (length 0); regions and loops are ranges.
// Positions are seconds from the file's start.
struct LXLabel {
    LXLabelKind kind = LXLabelKind::Marker;
    double start = 0.0;
    double length = 0.0;
    QString name;
    LXLoopType loopType = LXLoopType::Forward;
    int playCount = 0; // loops: 0 means endless

    double position() const { return start; }
    double end() const { return start + length; }
    LXRange range() const { return LXRange::rangeWithLocation(start, length); }
    bool operator==(const LXLabel&) const = default;
};

// The labels of one kind, in the order the file or the action put them.
class LXLabelList {
public:
    explicit LXLabelList(LXLabelKind kind = LXLabelKind::Marker) : m_kind(kind) {}

    LXLabelKind kind() const { return m_kind; }
    const QList<LXLabel>& list() const { return m_labels; }
    qsizetype count() const { return m_labels.size(); }
    bool isEmpty() const { return m_labels.isEmpty(); }
    const LXLabel& labelAtIndex(qsizetype index) const { return m_labels.at(index); }

    void addMarkerWithPosition(double seconds, const QString& name = {});
    void addSliceWithPosition(double seconds);
    void addRegionWithRange(const LXRange& range, const QString& name = {});
    void addLoopWithType(LXLoopType type, const LXRange& range, int playCount = 0);
    void addLabel(const LXLabel& label); // converted to this list's kind
    void addLabels(const LXLabelList& other);

    void removeAllLabels() { m_labels.clear(); }
    void removeAtPosition(double seconds); // every label that starts there
    void removeDuplicates();               // labels with the same start (and length) as an earlier one
    void shift(double seconds);
    // Where each label falls once the file of that length plays backwards: a point at t moves to
    // length - t, a range keeps its length and ends where it started from the end. The order reverses.
    void mirror(double length);
    // Every position and length times factor: the same frames at another rate (factor old / new), or
    // the same moments of audio stretched to factor times its length.
    void scale(double factor);
    void sortByPosition();

    // Start of the earliest label and end of the latest; 0 for an empty list.
    double firstPosition() const;
    double lastPosition() const;

    bool operator==(const LXLabelList&) const = default;

private:
    LXLabelKind m_kind;
    QList<LXLabel> m_labels;
};

// The four label lists a file carries.
struct LXLabels {
    LXLabelList markers{LXLabelKind::Marker};
    LXLabelList slices{LXLabelKind::Slice};
    LXLabelList regions{LXLabelKind::Region};
    LXLabelList loops{LXLabelKind::Loop};

    LXLabelList& list(LXLabelKind kind);
    const LXLabelList& list(LXLabelKind kind) const;
    bool isEmpty() const {
        return markers.isEmpty() && slices.isEmpty() && regions.isEmpty() && loops.isEmpty();
    }
    void mirror(double length); // every list, as LXLabelList::mirror
    void scale(double factor);  // every list, as LXLabelList::scale
    bool operator==(const LXLabels&) const = default;
};

#pragma once

#include <QStyledItemDelegate>

// Draws the status column: the style's cell with the status image (the model's decoration), and over it
// a pie filled to the progress while an entry is analysed or processed, or a turning arc while it waits
// (the fraction of a waiting status is the arc's angle). Colours from the cell's palette.
class TWStatusDelegate final : public QStyledItemDelegate {
    Q_OBJECT
public:
    using QStyledItemDelegate::QStyledItemDelegate;
    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;
};

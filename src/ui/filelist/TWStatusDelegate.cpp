#include "ui/filelist/TWStatusDelegate.h"

#include "model/TWFileEntry.h"
#include "ui/filelist/TWFileListModel.h"

#include <QPainter>

#include <cmath>

void TWStatusDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                             const QModelIndex& index) const {
    QStyledItemDelegate::paint(painter, option, index);
    const float status = index.data(TWFileListModel::StatusRole).toFloat();
    const int state = TWStatus::state(status);
    if (state != int(TWStatus::Analyzing) && state != int(TWStatus::Processing) &&
        state != int(TWStatus::Waiting))
        return;
    const float fraction = status - std::trunc(status);
    const int side = std::min(option.rect.height(), option.rect.width()) - 6;
    if (side <= 0) return;
    QRect circle(0, 0, side, side);
    circle.moveCenter(option.rect.center());
    const bool selected = option.state & QStyle::State_Selected;
    const QColor ink = option.palette.color(selected ? QPalette::HighlightedText : QPalette::Text);
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    painter->setPen(QPen(ink, 1.0));
    // Angles in sixteenths of a degree, from twelve o'clock clockwise.
    if (state == int(TWStatus::Waiting)) {
        painter->drawArc(circle, int((90.0f - fraction * 360.0f) * 16.0f), -270 * 16);
    } else {
        painter->setBrush(Qt::NoBrush);
        painter->drawEllipse(circle);
        painter->setBrush(ink);
        painter->drawPie(circle, 90 * 16, -int(fraction * 360.0f * 16.0f));
    }
    painter->restore();
}

#pragma once

#include <QTreeWidget>

// The actions one can add to a workflow, by family ("Level", "Edit", ...), each family in the order of
// the action folders and its actions by name. An action's item carries its class name; dragging it gives
// that name as kMimeType, which the workflow editor takes at the drop position.
class TWActionCatalogue final : public QTreeWidget {
    Q_OBJECT
public:
    static inline const QString kMimeType = QStringLiteral("application/x-clipwright-action");
    static constexpr int kClassRole = Qt::UserRole;

    explicit TWActionCatalogue(QWidget* parent = nullptr);

    // The item of the class, or nullptr when the catalogue lacks it.
    QTreeWidgetItem* itemForClass(const QString& className) const;

signals:
    void actionChosen(const QString& className); // an action's item activated

protected:
    QStringList mimeTypes() const override;
    QMimeData* mimeData(const QList<QTreeWidgetItem*>& items) const override;
};

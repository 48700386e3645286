#include "model/TWEntryTransfer.h"

#include "model/TWLocalizedStrings.h"
#include "platform/TWInteraction.h"

#include "lx/LXFile.h"

#include <QDir>
#include <QFileInfo>

std::optional<QString> TWTransferTarget(TWTransfer transfer, const QStringList& paths,
                                        const QString& directory) {
    bool isDirectory = false;
    if (!LXFile::existsAtPath(directory, &isDirectory) || !isDirectory) {
        TWShowTransferAlert(transfer, TWTransferFailure::NoDirectory, QFileInfo(directory).fileName());
        return std::nullopt;
    }
    const QDir into(directory);
    const QString target = LXFile::conformPath(into.filePath(QFileInfo(paths.value(0)).fileName()));
    if (target == LXFile::conformPath(paths.value(0))) return std::nullopt;
    for (const QString& path : paths) {
        const QString name = QFileInfo(path).fileName();
        const QFileInfo taken(into.filePath(name));
        if (taken.exists() || taken.isSymLink()) { // a link that leads nowhere still holds the name
            TWShowTransferAlert(transfer, TWTransferFailure::Exists, name);
            return std::nullopt;
        }
    }
    return target;
}

void TWShowTransferAlert(TWTransfer transfer, TWTransferFailure failure, const QString& name,
                         const std::optional<LXError>& error) {
    const QString verb = transfer == TWTransfer::Move ? QStringLiteral("Move") : QStringLiteral("Copy");
    QString messageKey = verb + QStringLiteral(" Failed");
    if (failure == TWTransferFailure::NoDirectory) messageKey += QStringLiteral(" No Directory");
    if (failure == TWTransferFailure::Exists) messageKey += QStringLiteral(" Exists");
    TWAlert alert;
    alert.style = TWAlertStyle::Informational;
    alert.title = TWLocalizedString(verb + QStringLiteral(" Failed Alert"));
    alert.message = TWLocalizedString(messageKey).arg(name);
    if (error) alert.message += QStringLiteral("\n\n") + error->description();
    alert.buttons = {TWLocalizedString(QStringLiteral("OK"))};
    TWInteraction::current().runAlert(alert);
}

#pragma once

#include "lx/LXError.h"

#include <QString>
#include <QStringList>

#include <optional>

// What moving and copying an entry into a directory share, whatever the entry: the checks before the
// transfer and the alerts that say why it did not happen.
enum class TWTransfer { Move, Copy };
enum class TWTransferFailure { NoDirectory, Exists, Failed };

// The path the item at paths[0] takes in `directory`; nothing when the directory is missing or a target is
// taken (the user has been told) or when the item is there already (nothing to do, nothing said). The
// other paths are files that travel with it under their own names (the members of a split set): a name
// taken by any of them stops the transfer before anything moves.
std::optional<QString> TWTransferTarget(TWTransfer transfer, const QStringList& paths,
                                        const QString& directory);
// "Move Failed Alert" with the text of "Move Failed No Directory", "Move Failed Exists" or "Move Failed"
// ("Copy ..." for a copy) about `name`; a failed transfer adds the error's description.
void TWShowTransferAlert(TWTransfer transfer, TWTransferFailure failure, const QString& name,
                         const std::optional<LXError>& error = std::nullopt);

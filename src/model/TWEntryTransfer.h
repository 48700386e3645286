#pragma once

#include "lx/LXError.h"

#include <QString>

#include <optional>

// What moving and copying an entry into a directory share, whatever the entry: the checks before the
// transfer and the alerts that say why it did not happen.
enum class TWTransfer { Move, Copy };
enum class TWTransferFailure { NoDirectory, Exists, Failed };

// The path the item at `path` takes in `directory`; nothing when the directory is missing or the target is
// taken (the user has been told) or when the item is there already (nothing to do, nothing said).
std::optional<QString> TWTransferTarget(TWTransfer transfer, const QString& path, const QString& directory);
// "Move Failed Alert" with the text of "Move Failed No Directory", "Move Failed Exists" or "Move Failed"
// ("Copy ..." for a copy) about `name`; a failed transfer adds the error's description.
void TWShowTransferAlert(TWTransfer transfer, TWTransferFailure failure, const QString& name,
                         const std::optional<LXError>& error = std::nullopt);

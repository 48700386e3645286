#pragma once

#include <QString>

// The user-visible texts of the file list, looked up by key ("Move Failed Exists"). Keys without a
// translation come back as they are.
QString TWLocalizedString(const QString& key);

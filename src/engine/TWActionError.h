#pragma once

#include "lx/LXError.h"

#include <QString>

// The one error an action reports: a result code, the phase it failed in ("Processing the files") and
// the reason the code stands for.
class TWActionError : public LXError {
public:
    static TWActionError errorWithCode(int32_t code, const QString& phase);
    // The same, with the framework's own account of the failure (a full disk, a damaged file), which
    // then stands in for the code's general reason.
    static TWActionError errorWithCode(int32_t code, const QString& phase, const LXError& cause);

    static QString domain() { return QStringLiteral("TWActionError"); }
    static QString alertMessage() { return QStringLiteral("An action error occurred"); }
    // "the action was stopped.", ..., "an undefined error occurred: -7".
    static QString failureReasonForError(int32_t code);

    const QString& phase() const { return m_phase; }
    QString failureReason() const;
    // "An action error occurred while processing the files: the action was stopped."
    QString localizedDescription() const;

private:
    TWActionError(int32_t code, QString phase, QString cause);
    QString m_phase;
    QString m_cause;
};

// The phases an action passes through.
namespace TWActionPhase {
inline const QString ConfirmingDestination = QStringLiteral("Confirming the destination");
inline const QString ConfirmingInstructions = QStringLiteral("Confirming the instructions");
inline const QString ProcessingFiles = QStringLiteral("Processing the files");
} // namespace TWActionPhase

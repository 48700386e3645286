#include "engine/TWActionError.h"

TWActionError::TWActionError(int32_t code, QString phase, QString cause)
    : LXError(code, cause.isEmpty() ? failureReasonForError(code) : cause), m_phase(std::move(phase)),
      m_cause(std::move(cause)) {}

TWActionError TWActionError::errorWithCode(int32_t code, const QString& phase) {
    return TWActionError(code, phase, {});
}

TWActionError TWActionError::errorWithCode(int32_t code, const QString& phase, const LXError& cause) {
    return TWActionError(code, phase, cause.description());
}

QString TWActionError::failureReason() const {
    return m_cause.isEmpty() ? failureReasonForError(code()) : m_cause;
}

QString TWActionError::failureReasonForError(int32_t code) {
    switch (code) {
    case LXCancelled:
        return QStringLiteral("the action was cancelled.");
    case LXStopped:
        return QStringLiteral("the action was stopped.");
    case LXReadOnlyDestination:
        return QStringLiteral("the destination directory is read-only.");
    case LXMissingInstructions:
        return QStringLiteral("required instructions are missing.");
    case LXMissingDestination:
        return QStringLiteral("the destination directory does not exist.");
    case LXInvalidParameter:
        return QStringLiteral("a parameter given to the action was invalid.");
    default:
        return QStringLiteral("an undefined error occurred: %1").arg(code);
    }
}

QString TWActionError::localizedDescription() const {
    QString phase = m_phase;
    if (!phase.isEmpty()) phase[0] = phase[0].toLower();
    return phase.isEmpty() ? QStringLiteral("%1: %2").arg(alertMessage(), failureReason())
                           : QStringLiteral("%1 while %2: %3").arg(alertMessage(), phase, failureReason());
}

#include "engine/TWOutcome.h"

#include <QFileInfo>

TWOutcome::TWOutcome(const LXStatus& status) {
    if (!status) *this = TWOutcome(status.error());
}

TWOutcome::TWOutcome(const LXError& error) {
    *this = fromCode(error.code());
    if (m_kind == Kind::Failed) m_reason = error;
}

TWOutcome TWOutcome::failure(int32_t code) {
    TWOutcome outcome(Kind::Failed);
    outcome.m_code = code;
    return outcome;
}

TWOutcome TWOutcome::fromCode(int32_t code) {
    switch (code) {
    case LXContinue:
        return success();
    case LXUnchanged:
        return unchanged();
    case LXStopped:
    case LXUserStopped:
        return stopped();
    case LXCancelled:
        return cancelled();
    default:
        return failure(code);
    }
}

int32_t TWOutcome::code() const {
    switch (m_kind) {
    case Kind::Continue:
        return LXContinue;
    case Kind::Unchanged:
        return LXUnchanged;
    case Kind::Stopped:
        return LXStopped;
    case Kind::Cancelled:
        return LXCancelled;
    case Kind::Failed:
        return m_code;
    }
    return m_code;
}

TWOutcome TWOutcome::cancellingRunOnFailure(const QString& path) const {
    if (m_kind != Kind::Failed) return *this;
    const LXError why = m_reason.value_or(LXError(code(), QStringLiteral("failed")));
    QString message = why.message();
    if (!why.path().isEmpty() && why.path() != path)
        message += QStringLiteral(" (in '%1')").arg(QFileInfo(why.path()).fileName());
    return cancelled(LXError(
        why.code(), message + QStringLiteral("; the run was cancelled and the files changed before it put back"), path));
}

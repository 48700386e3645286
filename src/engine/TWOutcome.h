#pragma once

#include "lx/LXResult.h"

#include <optional>

// What an action's hook answers: go on, the file needs no change, the user stopped or cancelled, or a
// failure with the reason the user reads ("'kick.flac': the file ends early"). The result codes of the
// action model (-1002 go on, -3 unchanged, -1000, -1001, -2 ...) are what code() gives at the boundary,
// where an error is shown or a script receives its error number; inside, no code stands for two things.
class TWOutcome {
public:
    enum class Kind { Continue, Unchanged, Stopped, Cancelled, Failed };

    TWOutcome() = default; // go on
    // A framework operation's result: success goes on; a stop or cancel from the progress delegate is
    // that; any other error is a failure with its reason.
    TWOutcome(const LXStatus& status);
    TWOutcome(const LXError& error);

    static TWOutcome success() { return {}; }
    static TWOutcome unchanged() { return TWOutcome(Kind::Unchanged); }
    static TWOutcome stopped() { return TWOutcome(Kind::Stopped); }
    static TWOutcome cancelled() { return TWOutcome(Kind::Cancelled); }
    // A cancel that a failure caused: the run takes back what it made, as for the user's cancel, and
    // reports the failure as the reason.
    static TWOutcome cancelled(const LXError& why) {
        TWOutcome outcome(Kind::Cancelled);
        outcome.m_reason = why;
        return outcome;
    }
    // This outcome, with a failure turned into a cancel of the whole run (so that the files already changed
    // are put back and a batch is processed whole or not at all), its reason naming the file the user gave
    // (`path`) rather than a temporary file beside it. Any other outcome as it is.
    TWOutcome cancellingRunOnFailure(const QString& path) const;
    // A failure known by its result code alone (LXInvalidParameter): reported with the code's own reason.
    static TWOutcome failure(int32_t code);
    static TWOutcome failure(const LXError& error) { return TWOutcome(error); }
    // The outcome of a result code, as a progress delegate or a stop code gives it.
    static TWOutcome fromCode(int32_t code);

    Kind kind() const { return m_kind; }
    bool goesOn() const { return m_kind == Kind::Continue; }
    bool isStopOrCancel() const { return m_kind == Kind::Stopped || m_kind == Kind::Cancelled; }
    // The result code at the boundary: LXContinue, LXUnchanged, LXStopped, LXCancelled, or the failure's.
    int32_t code() const;
    // Why it failed, when the failure has a reason beyond its code.
    const std::optional<LXError>& reason() const { return m_reason; }
    // A few words for the user on what the action did to the file or why it left it alone ("gain +3.01
    // dB", "it is silent"), which run reports carry.
    TWOutcome withNote(const QString& note) const {
        TWOutcome outcome = *this;
        outcome.m_note = note;
        return outcome;
    }
    const QString& note() const { return m_note; }
    // What the output could not keep of its source ("labels, title"): unlike a note, the user always
    // hears of it, since it is lost once the file is saved.
    TWOutcome withLoss(const QString& lost) const {
        TWOutcome outcome = *this;
        outcome.m_lost = lost;
        return outcome;
    }
    const QString& lost() const { return m_lost; }

private:
    explicit TWOutcome(Kind kind) : m_kind(kind) {}

    Kind m_kind = Kind::Continue;
    int32_t m_code = 0; // a failure's code
    std::optional<LXError> m_reason;
    QString m_note;
    QString m_lost;
};

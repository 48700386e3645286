// Reverse: each file plays backwards, every sample kept as it was. Its labels follow the audio.

#include "engine/TWAction.h"
#include "engine/TWActionRegistry.h"

#include "lx/LXAudioFile.h"
#include "lx/LXAudioFileWriter.h"
#include "lx/LXProcess.h"
#include "lx/dsp/LXReverse.h"

class TWActionReverse : public TWAction {
public:
    QString className() const override { return QStringLiteral("TWActionReverse"); }
    bool canProcessFilesConcurrently() const override { return true; }
    QString name() const override { return QStringLiteral("Reverse"); }
    QString verb() const override { return QStringLiteral("Reversing..."); }

protected:
    TWOutcome processAudioFile(LXAudioFile& file, TWFileEntry&, const QVariantMap&, LXAudioFileWriter& writer,
                               int) override {
        writer.annotations().labels.mirror(file.length());
        LXReverse kernel;
        LXProcessOptions backwards;
        backwards.direction = LXDirection::Backward;
        return LXProcess(file, kernel, writer, backwards);
    }
};

TW_REGISTER_ACTION(TWActionReverse)

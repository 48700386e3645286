// Filter DC Offset: each channel's offset from zero goes, and with it any slow drift below a couple of
// hertz, without a click at the start (lx/dsp/LXDCFilter.h).

#include "engine/TWAction.h"
#include "engine/TWActionRegistry.h"

#include "lx/LXAudioFile.h"
#include "lx/LXAudioFileWriter.h"
#include "lx/LXLevels.h"
#include "lx/LXProcess.h"
#include "lx/dsp/LXDCFilter.h"

class TWActionFilterDC : public TWAction {
public:
    QString className() const override { return QStringLiteral("TWActionFilterDC"); }
    bool canProcessFilesConcurrently() const override { return true; }
    QString name() const override { return QStringLiteral("Filter DC Offset"); }
    QString verb() const override { return QStringLiteral("Filtering..."); }

protected:
    TWOutcome processAudioFile(LXAudioFile& file, TWFileEntry&, const QVariantMap&, LXAudioFileWriter& writer,
                               int) override {
        auto offsets = LXMeanFrom(file, 0, file.frames());
        if (!offsets) return offsets.error();
        LXDCFilter kernel(std::move(*offsets));
        return LXProcess(file, kernel, writer);
    }
};

TW_REGISTER_ACTION(TWActionFilterDC)

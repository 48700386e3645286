#include "LXAudioFile.h"

#include <QCoreApplication>
#include <QTextStream>
#include <cmath>

// For now: print each file's properties and levels as the framework reads them.
int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("clipwright"));
    QTextStream out(stdout);
    QTextStream err(stderr);
    const QStringList files = app.arguments().mid(1);
    if (files.isEmpty() || files.first() == u"--help") {
        out << "Usage: clipwright FILE...\nPrints the format, length and levels of each audio file.\n";
        return files.isEmpty() ? 2 : 0;
    }
    int status = 0;
    for (const QString& path : files) {
        auto file = LXAudioFile::open(path);
        if (!file) {
            err << "clipwright: " << file.error().description() << '\n';
            status = 8;
            continue;
        }
        auto peak = (*file)->maximumFrom(0, (*file)->frames(), (*file)->channelSet());
        auto rms = (*file)->rmsFrom(0, (*file)->frames(), (*file)->channelSet());
        auto dB = [](double v) { return v > 0 ? QString::number(20 * std::log10(v), 'f', 2) : QStringLiteral("-inf"); };
        out << (*file)->displayName() << ": " << LXFormat::name((*file)->format()) << ", " << (*file)->depth()
            << ((*file)->isFloat() ? "-bit float" : "-bit") << ", " << (*file)->rate() << " Hz, "
            << (*file)->numberOfChannels() << " ch, " << QString::number((*file)->length(), 'f', 3) << " s, peak "
            << (peak ? dB(*peak) : QStringLiteral("?")) << " dBFS, RMS " << (rms ? dB(*rms) : QStringLiteral("?"))
            << " dBFS\n";
    }
    return status;
}

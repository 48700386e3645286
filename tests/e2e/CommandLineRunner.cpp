#include "CommandLineRunner.h"

#include "TestAudio.h"

#include <QDir>
#include <QFile>
#include <QProcess>

#include <gtest/gtest.h>

#include <cmath>

CommandLineRunner::CommandLineRunner() {
    QDir().mkpath(work());
    QDir().mkpath(m_home.filePath(QStringLiteral("data")));
}

QString CommandLineRunner::program() {
    return QStringLiteral(CLIPWRIGHT_BINARY);
}

QString CommandLineRunner::undoFolder() const {
    return m_home.filePath(QStringLiteral("data/Clipwright/Undo"));
}

QProcessEnvironment CommandLineRunner::environment() const {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("HOME"), m_home.path());
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), m_home.filePath(QStringLiteral("config")));
    environment.insert(QStringLiteral("XDG_DATA_HOME"), m_home.filePath(QStringLiteral("data")));
    environment.insert(QStringLiteral("XDG_CACHE_HOME"), m_home.filePath(QStringLiteral("cache")));
    environment.remove(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"));
    return environment;
}

CommandLineRunner::Result CommandLineRunner::run(const QStringList& arguments,
                                                 const QStringList& wrapper) const {
    QProcess process;
    process.setProcessEnvironment(environment());
    process.setWorkingDirectory(work());
    if (wrapper.isEmpty())
        process.start(program(), arguments);
    else
        process.start(wrapper.first(), wrapper.mid(1) + QStringList{program()} + arguments);
    Result result;
    if (!process.waitForFinished(120000) || process.exitStatus() != QProcess::NormalExit) return result;
    result.exitCode = process.exitCode();
    result.out = QString::fromLocal8Bit(process.readAllStandardOutput());
    result.err = QString::fromLocal8Bit(process.readAllStandardError());
    return result;
}

QStringList CommandLineRunner::commands() const {
    const QString help = run({QStringLiteral("--help")}).out;
    QStringList names;
    for (const QString& line : help.section(QStringLiteral("Commands:\n"), 1)
                                   .section(QStringLiteral("\n\n"), 0, 0)
                                   .split(u'\n', Qt::SkipEmptyParts))
        names.append(line.trimmed().section(u' ', 0, 0));
    return names;
}

QString CommandLineRunner::makeSine(const QString& name) const {
    const auto made =
        TestAudio::generateWithSox(QDir(work()).filePath(name), {"-n", "-r", "44100", "-c", "2"},
                                   {"synth", "1", "sine", "440", "vol", "0.5"});
    return made ? *made : QString();
}

QString CommandLineRunner::makeMonoSine(const QString& name, double seconds) const {
    const QString path = QDir(work()).filePath(name);
    EXPECT_TRUE(TestAudio::generateWithSox(path, {"-n", "-r", "44100", "-b", "16"},
                                           {"synth", QString::number(seconds), "sine", "440", "vol", "0.5"}));
    return path;
}

QStringList CommandLineRunner::Result::lines() const {
    return out.split(u'\n', Qt::SkipEmptyParts);
}

QByteArray readBytes(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QString CommandLineRunner::runOnTerminal(const QStringList& arguments, const QByteArray& input) const {
    QStringList quoted{program()};
    for (const QString& argument : arguments)
        quoted.append(u'\'' + argument + u'\'');
    QProcess script;
    script.setProcessEnvironment(environment());
    script.start("script", {"-qec", quoted.join(u' '), "/dev/null"});
    script.write(input);
    if (!script.waitForFinished(60000)) return {};
    return QString::fromLocal8Bit(script.readAllStandardOutput());
}

double peakDecibels(const QString& path) {
    const auto decoded = TestAudio::readWithSox(path);
    EXPECT_TRUE(decoded) << path.toStdString();
    double peak = 0;
    for (double sample : decoded ? decoded->samples : std::vector<double>{})
        peak = std::max(peak, std::fabs(sample));
    return 20 * std::log10(peak);
}

#pragma once

#include <QByteArray>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

// Runs the built clipwright in a home of its own (preferences, undo folder, caches), as a user would.
class CommandLineRunner {
public:
    CommandLineRunner();
    bool isValid() const { return m_home.isValid(); }
    QString work() const { return m_home.filePath(QStringLiteral("work")); } // a folder for the test's files
    QString undoFolder() const;
    QProcessEnvironment environment() const;
    static QString program();

    struct Result {
        int exitCode = -1;
        QString out;
        QString err;
        QStringList lines() const; // stdout, one path a line
    };
    // wrapper: a program that runs clipwright for the test (unshare, for a user or a mount of its own),
    // with its arguments; the program's path and the arguments follow them.
    Result run(const QStringList& arguments, const QStringList& wrapper = {}) const;
    // What a terminal shows of the command, given input to read: script(1) gives it one.
    QString runOnTerminal(const QStringList& arguments, const QByteArray& input = {}) const;
    // The available commands, as `clipwright --help` lists them.
    QStringList commands() const;
    // A second of a 440 Hz sine at half scale, made by sox in the work folder.
    QString makeSine(const QString& name) const;
    // A short 440 Hz sine at half scale (peak -6.02 dB, RMS -9.03 dB), 16-bit mono.
    QString makeMonoSine(const QString& name, double seconds) const;

private:
    QTemporaryDir m_home;
};

QByteArray readBytes(const QString& path);
// The peak of the file as sox reads it, in dB.
double peakDecibels(const QString& path);

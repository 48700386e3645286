// clipwright find: a smart-group query over a folder, printing the paths of the audio files found.

#include "lx/LXFile.h"
#include "model/TWSmartGroupEntry.h"
#include "platform/TWPropertyList.h"
#include "shell/cli/TWCommandLine.h"

#include <QCoreApplication>
#include <QEventLoop>

namespace TWCommandLine {

namespace {

// Operators as the query stores them, and the words a user may type instead.
const QList<QPair<QString, QString>> kOperatorWords = {
    {"contains", "LIKE[cd]"}, {"begins-with", "BEGINSWITH[cd]"}, {"ends-with", "ENDSWITH[cd]"}, {"is", "="}};
const QStringList kOperators = {
    "LIKE[cd]", "BEGINSWITH[cd]", "ENDSWITH[cd]", "BEGINSWITH", "=", ">", "<", ">=", "<="};

QString storedOperator(const QString& typed) {
    for (const auto& [word, stored] : kOperatorWords)
        if (typed == word) return stored;
    return kOperators.contains(typed) ? typed : QString();
}

int listKeys(Context& context) {
    auto keys = TWPropertyList::readFile(QStringLiteral(":/query_keys.xml"));
    if (!keys) return fail(context, keys.error().description());
    for (const QVariant& item : keys->toList()) {
        const QVariantMap key = item.toMap();
        context.out << key.value("key").toString().leftJustified(26) << key.value("name").toString() << " ("
                    << QString(key.value("class").toString()).remove("NS").toLower() << ")\n";
    }
    return kSuccess;
}

int runFind(const Arguments& arguments, Context& context) {
    if (arguments.has(QStringLiteral("keys"))) return listKeys(context);
    const bool any = arguments.has(QStringLiteral("any"));
    QStringList words = arguments.operands;
    if (words.isEmpty())
        return usageError(context, QStringLiteral("find"), QStringLiteral("no folder given"));
    const QString scope = LXFile::conformPath(words.takeFirst());
    bool isDirectory = false;
    if (!LXFile::existsAtPath(scope, &isDirectory) || !isDirectory)
        return fail(context, QStringLiteral("'%1' is not a folder").arg(scope));
    if (words.size() % 3 != 0)
        return usageError(context, QStringLiteral("find"),
                          QStringLiteral("each criterion is KEY OPERATOR VALUE"));

    QVariantList predicate;
    for (qsizetype i = 0; i < words.size(); i += 3) {
        const QString op = storedOperator(words.at(i + 1));
        if (op.isEmpty())
            return usageError(context, QStringLiteral("find"),
                              QStringLiteral("'%1' is not an operator").arg(words.at(i + 1)));
        predicate.append(QVariantMap{{"key", words.at(i)}, {"comparator", op}, {"value", words.at(i + 2)}});
    }

    auto group = std::make_shared<TWSmartGroupEntry>();
    group->setPath(scope);
    group->setCriteriaOperator(!any);
    if (!predicate.isEmpty())
        group->setPredicate(predicate);
    else // every audio file: a criterion that any name meets
        group->setPredicate({QVariantMap{{"key", "Name"}, {"comparator", "LIKE[cd]"}, {"value", ""}}});
    group->refreshSmartGroup();
    while (group->isGathering())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 100);
    if (!group->lastError().isEmpty()) return fail(context, group->lastError(), kUsageError);
    for (const TWEntryPtr& entry : group->entries())
        context.out << entry->path() << '\n';
    return kSuccess;
}

} // namespace

Command findCommand() {
    return {
        QStringLiteral("find"),
        QStringLiteral("find audio files in a folder by name and properties"),
        {QStringLiteral("FOLDER [KEY OPERATOR VALUE]... [--any]"), QStringLiteral("--keys")},
        QStringLiteral(
            "Searches FOLDER and its subfolders for audio files that meet every criterion (with\n"
            "--any: at least one) and prints their paths, one a line. The folder is indexed on\n"
            "the first search and only changed files are read again afterwards.\n\n"
            "Operators: contains, begins-with, ends-with (text, ignoring case and accents);\n"
            "           = (or is), >, <, >=, <= (numbers and dates); LIKE[cd], BEGINSWITH[cd],\n"
            "           ENDSWITH[cd] and BEGINSWITH are accepted as smart groups store them.\n"
            "Keys: --keys lists them (Name, AudioSampleRate, AudioChannelCount, Duration, ...).\n\n"
            "With --any the criteria are joined by OR, and the audio-only condition binds to the\n"
            "last criterion alone, as in smart groups.\n"),
        {flag(QStringLiteral("any"), QStringLiteral("join the criteria by OR rather than AND")),
         flag(QStringLiteral("keys"), QStringLiteral("list the keys a criterion may name"))},
        QStringLiteral("Example: clipwright find ~/Samples Name contains kick AudioSampleRate '>' 44100\n"),
        runFind};
}

} // namespace TWCommandLine

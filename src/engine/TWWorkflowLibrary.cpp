#include "engine/TWWorkflowLibrary.h"

#include "engine/TWWorkflowFile.h"

#include "platform/TWPreferences.h"
#include "platform/TWSupportFolders.h"

#include "lx/LXFile.h"

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

#include <algorithm>

// A static library drops the resource's initialiser unless something refers to it.
static void initWorkflowResources() {
    Q_INIT_RESOURCE(workflows);
}

namespace {

const QString kFactoryTitle = QStringLiteral("Factory");
const QString kUserTitle = QStringLiteral("User");
const QString kUntitled = QStringLiteral("Untitled");

QString defaultFactoryFolder() {
    const QString local =
        QStandardPaths::locate(QStandardPaths::GenericDataLocation, QStringLiteral("clipwright/workflows"),
                               QStandardPaths::LocateDirectory);
    if (!local.isEmpty()) return local;
    return QStringLiteral(":/workflows");
}

LXError refused(const QString& what, const TWWorkflowLibrary::Item& item) {
    return LXError(LXErrInvalidParameter,
                   QStringLiteral("the factory workflow '%1' cannot be %2").arg(item.title, what), item.path);
}

} // namespace

QVariantMap TWWorkflowLibrary::Item::toMap() const {
    if (!group) return {{QStringLiteral("title"), title}, {QStringLiteral("workflow"), workflow}};
    QVariantList children;
    for (const Item& child : items)
        children.append(child.toMap());
    return {{QStringLiteral("title"), title}, {QStringLiteral("items"), children}};
}

TWWorkflowLibrary::TWWorkflowLibrary(TWPreferences& preferences, Folders folders)
    : m_folders(std::move(folders)), m_preferences(&preferences) {
    static const bool resourcesReady = (initWorkflowResources(), true);
    (void)resourcesReady;
    if (m_folders.factory.isEmpty()) m_folders.factory = defaultFactoryFolder();
    if (m_folders.user.isEmpty()) m_folders.user = TWSupportFolders::workflowsDirectory();
    Item factory;
    factory.title = kFactoryTitle;
    factory.group = true;
    factory.items = readFolder(m_folders.factory, kFactoryTitle);
    Item user;
    user.title = kUserTitle;
    user.group = true;
    m_groups = {factory, user};
    updateUserWorkflows();
}

QList<TWWorkflowLibrary::Item> TWWorkflowLibrary::readFolder(const QString& folder,
                                                             const QString& groupTitle) {
    QList<Item> items;
    const QDir dir(folder);
    for (const QFileInfo& info : dir.entryInfoList(QDir::Files | QDir::Readable, QDir::Name)) {
        if (!TWWorkflowFile::hasWorkflowExtension(info.fileName())) continue;
        Item item;
        item.title = info.completeBaseName();
        item.parentTitle = groupTitle;
        item.path = info.filePath();
        auto states = TWWorkflowFile::readStates(item.path);
        if (states)
            item.workflow = *states;
        else
            item.problem = states.error().description();
        items.append(item);
    }
    return items;
}

void TWWorkflowLibrary::updateUserWorkflows() {
    m_groups[User].items = readFolder(m_folders.user, kUserTitle);
}

QString TWWorkflowLibrary::pathForWorkflowName(const QString& name) const {
    return QDir(m_folders.user).filePath(name + QLatin1Char('.') + TWWorkflowFile::kExtension);
}

bool TWWorkflowLibrary::isEditable(const Item& item) {
    return !item.group && item.parentTitle == kUserTitle;
}

LXResult<QString> TWWorkflowLibrary::addWorkflow(const QVariantList& states) {
    if (states.isEmpty()) return QString();
    // The folder may be gone since start-up; writing into it would fail with a less helpful message.
    LX_TRY(LXFile::createDirectoryAtPath(m_folders.user));
    QString path = pathForWorkflowName(kUntitled);
    for (int number = 1; LXFile::existsAtPath(path); ++number)
        path = pathForWorkflowName(QStringLiteral("%1 %2").arg(kUntitled).arg(number));
    const LXStatus written = TWWorkflowFile::write(path, states);
    updateUserWorkflows();
    if (!written) return written.error();
    setExpanded(User, true);
    return path;
}

LXStatus TWWorkflowLibrary::renameWorkflow(const Item& item, const QString& newName) {
    if (!isEditable(item)) return refused(QStringLiteral("renamed"), item);
    if (newName.isEmpty() || newName.contains(QLatin1Char('/')) || newName == u"." || newName == u"..")
        return LXError(LXErrInvalidParameter, QStringLiteral("'%1' cannot name a workflow").arg(newName),
                       item.path);
    const QString target = pathForWorkflowName(newName);
    if (target == item.path) return {};
    LXStatus moved;
    if (LXFile::existsAtPath(target))
        moved =
            LXError(LXErrInvalidParameter,
                    QStringLiteral("cannot rename the workflow '%1': a workflow named '%2' exists already")
                        .arg(item.title, newName),
                    target);
    else
        moved = LXFile::movePath(item.path, target);
    updateUserWorkflows();
    return moved;
}

LXStatus TWWorkflowLibrary::removeWorkflow(const Item& item) {
    if (!isEditable(item)) return refused(QStringLiteral("removed"), item);
    const LXStatus removed = LXFile::deleteFileAtPath(item.path);
    updateUserWorkflows();
    return removed;
}

LXStatus TWWorkflowLibrary::loadWorkflow(const QString& path) {
    LXStatus copied = LXFile::createDirectoryAtPath(m_folders.user);
    if (copied) copied = LXFile::copyPath(path, QDir(m_folders.user).filePath(QFileInfo(path).fileName()));
    updateUserWorkflows();
    return copied;
}

LXStatus TWWorkflowLibrary::saveWorkflow(const Item& item, const QString& path) const {
    if (!isEditable(item)) return refused(QStringLiteral("saved from the library"), item);
    QString target = path;
    if (!TWWorkflowFile::hasWorkflowExtension(target))
        target += QLatin1Char('.') + TWWorkflowFile::kExtension;
    return TWWorkflowFile::write(target, item.workflow);
}

bool TWWorkflowLibrary::acceptsDroppedFiles(const QStringList& paths) {
    return !paths.isEmpty() && std::all_of(paths.begin(), paths.end(), TWWorkflowFile::hasWorkflowExtension);
}

LXStatus TWWorkflowLibrary::dropFiles(const QStringList& paths) {
    if (!acceptsDroppedFiles(paths))
        return LXError(
            LXErrInvalidParameter,
            QStringLiteral("only workflow files (.%1) can be dropped on the library: nothing was copied")
                .arg(TWWorkflowFile::kExtension));
    QStringList failures;
    LXStatus folder = LXFile::createDirectoryAtPath(m_folders.user);
    if (!folder) {
        updateUserWorkflows();
        return folder;
    }
    for (const QString& path : paths) {
        const LXStatus copied =
            LXFile::copyPath(path, QDir(m_folders.user).filePath(QFileInfo(path).fileName()));
        if (!copied) failures.append(copied.error().description());
    }
    updateUserWorkflows();
    if (failures.isEmpty()) return {};
    return LXError(LXErrWriteFailed,
                   QStringLiteral("%1 of %2 workflows could not be copied into the library: %3")
                       .arg(failures.size())
                       .arg(paths.size())
                       .arg(failures.join(QStringLiteral("; "))),
                   m_folders.user);
}

bool TWWorkflowLibrary::isExpanded(Group group) const {
    return preferences().boolValue(group == Factory ? kFactoryExpandedKey : kUserExpandedKey);
}

void TWWorkflowLibrary::setExpanded(Group group, bool expanded) {
    preferences().setValue(group == Factory ? kFactoryExpandedKey : kUserExpandedKey, expanded);
}

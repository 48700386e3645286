#include "model/TWLocalizedStrings.h"

#include <QHash>

QString TWLocalizedString(const QString& key) {
    // English texts of the keys the file list looks up. %1 is the item's (or folder's) name.
    static const QHash<QString, QString> table = {
        {"Move Failed Alert", "Move Failed"},
        {"Move Failed No Directory",
         "Items cannot be moved to \"%1\" because no folder of that name exists."},
        {"Move Failed Exists", "\"%1\" could not be moved because a file with that name already exists."},
        {"Move Failed", "\"%1\" could not be moved."},
        {"Copy Failed Alert", "Copy Failed"},
        {"Copy Failed No Directory",
         "Items cannot be copied to \"%1\" because no folder of that name exists."},
        {"Copy Failed Exists", "\"%1\" could not be copied because a file with that name already exists."},
        {"Copy Failed", "\"%1\" could not be copied."},
        {"Delete Files Alert", "Delete the selected items from the disk?"},
        {"Delete Files Message",
         "The files and folders of the selected items will be deleted. This cannot be undone."},
        {"Flush Undo Alert", "Empty the undo folder?"},
        {"Flush Undo Message",
         "The earlier versions of every file changed in place will be deleted. Nothing done so far can be "
         "undone afterwards."},
        {"Undo Failed", "The files could not be put back"},
        {"Choose directory", "Choose a destination folder"},
        {"Choose", "Choose"},
        {"Yes", "Yes"},
        {"No", "No"},
        {"OK", "OK"},
        {"%d of %d selected", "%1 of %2 selected"},
        {"%d item%@", "%1 item%2"},
    };
    return table.value(key, key);
}

// SPDX-License-Identifier: MIT
#include "common/file_replacement.h"

namespace buslink {

FileReplacement::FileReplacement(const QString &path) : mFile(path)
{
    if (!mFile.open(QIODevice::WriteOnly))
        fail();
}

bool FileReplacement::write(const QByteArray &bytes)
{
    if (mComplete && mFile.write(bytes) != bytes.size())
        failToWrite();
    return mComplete;
}

// QSaveFile puts the new file in place even where its own flush of what was written has failed.
QString FileReplacement::commit()
{
    if (mComplete && !mFile.flush())
        failToWrite();
    if (mComplete && !mFile.commit())
        fail();
    return mError;
}

// Where the room ends within a write, the system tells the reason to the next one.
void FileReplacement::failToWrite()
{
    mFile.write("\n", 1);
    mFile.flush();
    fail();
}

void FileReplacement::fail()
{
    mComplete = false;
    mError = mFile.errorString();
}

} // namespace buslink

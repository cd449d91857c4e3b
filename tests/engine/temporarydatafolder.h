// temporarydatafolder.h - a data folder that is used until it is removed.

#ifndef LISTHAVEN_TESTS_ENGINE_TEMPORARYDATAFOLDER_H
#define LISTHAVEN_TESTS_ENGINE_TEMPORARYDATAFOLDER_H

#include "app/datafolder.h"
#include "engine/catalogue.h"
#include "tests/platform/temporaryfolder.h"

class CTemporaryDataFolder : public CTemporaryFolder {
public:
    CTemporaryDataFolder() { UseDataFolder(GetPath()); }
    ~CTemporaryDataFolder() { CloseCatalogues(); }  // not every system removes a folder with open files
};

#endif  // LISTHAVEN_TESTS_ENGINE_TEMPORARYDATAFOLDER_H

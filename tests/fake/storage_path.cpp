#include "tal/storage_path.h"

const char talStorageFile[] = "tal.store.dat";

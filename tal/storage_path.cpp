#include "tal/storage_path.h"

const char talStorageFile[] = "/var/log/tal.store.dat";

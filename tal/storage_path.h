// Where the login data of accepted logins is kept. A file of its own, so that the tests can
// link another path and the product needs no switch for it.
#pragma once

extern const char talStorageFile[];

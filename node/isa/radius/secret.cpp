#include "node/isa/radius/secret.h"

#include <openssl/crypto.h>

namespace node::radius {

void Secret::wipe() {
    OPENSSL_cleanse(text_.data(), text_.size());
    text_.clear();
}

}  // namespace node::radius

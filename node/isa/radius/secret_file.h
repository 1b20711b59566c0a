// Reads the secrets of servers from a file that only its owner may read.
// Why: secrets do not belong into the configuration, which many may read. Any thread.
#pragma once

#include <map>
#include <stdexcept>
#include <string>

#include "node/isa/radius/secret.h"

namespace node::radius {

// What is wrong, with path and line number but never with contents of the file.
class SecretFileError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

using Secrets = std::map<std::string, Secret, std::less<>>;

// Lines of a name, blanks and a secret (8 to 128 printable ASCII characters, blanks inside
// allowed); empty lines and lines that start with "#" are passed over. Throws SecretFileError.
Secrets parseSecrets(std::string_view text, const std::string& path);

// The file must be a regular one of at most 64 KiB, belong to the caller or root and give no
// rights to group and others. Throws SecretFileError.
Secrets readSecretFile(const std::string& path);

// The whole contents of a file guarded in the same way, such as a private key.
Secret readGuardedFile(const std::string& path);

}  // namespace node::radius

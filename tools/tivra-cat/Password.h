#ifndef TIVRA_CAT_PASSWORD_H
#define TIVRA_CAT_PASSWORD_H

#include <string>

namespace tivra_cat {

/// The password of `user`, from the first of: the file when one is named ("-" is standard input), the
/// environment variable TIVRA_PASSWORD, a prompt on the terminal without echo. Throws Failure when none of
/// them gives one.
[[nodiscard]] std::string obtainPassword(const std::string& user, const std::string& passwordFile);

} // namespace tivra_cat

#endif

// The certificate that a server shows.
#pragma once

#include <string>

namespace pellor {

/// Whether a certificate, in DER, is that of a server of this name or numeric address. Any thread.
bool isCertificateOf(const std::string& certificate, const std::string& host);

}  // namespace pellor

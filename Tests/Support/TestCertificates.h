#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "OrvPlatform/TlsTrust.h"

namespace orv::test {

/// A server's certificate and its private key, as PEM files.
struct TestIdentity {
    std::string certificateFile;
    std::string keyFile;
};

/// A certificate authority of its own, made afresh in a private folder that goes with this object.
/// Names are DNS names or IP addresses.
class TestCertificates {
public:
    TestCertificates();
    ~TestCertificates();
    TestCertificates(const TestCertificates&) = delete;
    TestCertificates& operator=(const TestCertificates&) = delete;

    /// Valid for a day.
    TestIdentity leaf(const std::vector<std::string>& names);

    /// From the same authority; expired an hour ago.
    TestIdentity expiredLeaf(const std::vector<std::string>& names);

    /// Valid, but from another authority of the same name.
    TestIdentity unknownAuthorityLeaf(const std::vector<std::string>& names);

    /// The authority's certificate, PEM.
    const std::string& authorityFile() const { return authorityPath; }

    /// A trust that knows this authority and no other.
    std::unique_ptr<TlsTrust> trust() const;

private:
    struct Authority;
    TestIdentity write(const Authority& issuer, const std::vector<std::string>& names,
                       long validFromSeconds, long validToSeconds);

    std::filesystem::path folder;
    std::string authorityPath;
    std::unique_ptr<Authority> authority;
    int written = 0;
};

}  // namespace orv::test

#include "OrvViewerShared/Audit/InstalledSoftware.h"

#include <cstddef>
#include <utility>
#include <vector>

#include "OrvPlatform/Text.h"
#include "OrvViewerShared/Audit/CompanyName.h"

namespace orv {

namespace {

std::optional<std::string> companyOfMetadata(std::string_view answer) {
    for (const std::string& value : spotlightValues(answer)) {
        const std::optional<std::string> cleaned = cleanSpotlightValue(value);
        if (!cleaned) continue;
        std::optional<std::string> company = companyNameFromCopyright(*cleaned);
        if (company) return company;
    }
    return std::nullopt;
}

Task<std::optional<std::string>> spotlightPublisher(AuditRun& run, std::string bundle) {
    std::vector<std::string> arguments = {"-raw",  "-name",          "kMDItemCopyright",
                                          "-name", "kMDItemAuthors", std::move(bundle)};
    const std::string answer = co_await run.tools.text("/usr/bin/mdls", std::move(arguments));
    co_return companyOfMetadata(answer);
}

Task<std::optional<std::string>> codeSignaturePublisher(AuditRun& run, std::string bundle,
                                                        std::string bundleIdentifier) {
    std::vector<std::string> arguments = {"-d", "--verbose=4", std::move(bundle)};
    const std::optional<std::string> answer =
        co_await run.tools.answerOnBothStreams("/usr/bin/codesign", std::move(arguments));
    const std::optional<std::string> authority = firstSigningAuthority(answer.value_or(""));
    if (!authority) co_return std::nullopt;
    co_return companyOfSignature(*authority, bundleIdentifier);
}

/// The applications, and what the worker that found them could tell of their publishers.
struct Software {
    std::vector<ApplicationBundle> applications;
    std::vector<std::optional<std::string>> publishers;
};

Software scanSoftware(const SystemRoot& root) {
    Software software;
    software.applications = scanApplications(root);
    for (const ApplicationBundle& application : software.applications) {
        software.publishers.push_back(publisherOfBundle(application));
    }
    return software;
}

Task<std::optional<std::string>> publisherByTools(AuditRun& run, ApplicationBundle application) {
    const std::string bundle = run.root.locate(application.path);
    std::optional<std::string> publisher = co_await spotlightPublisher(run, bundle);
    if (publisher) co_return publisher;
    publisher = co_await codeSignaturePublisher(run, bundle, application.bundleIdentifier);
    if (publisher) co_return publisher;
    co_return publisherFromBundleIdentifier(application.bundleIdentifier);
}

/// Works through the applications together with its like, each taking the next one.
Task<void> findPublishers(AuditRun& run, Software* software, std::size_t* next) {
    while (*next < software->applications.size()) {
        const std::size_t index = (*next)++;
        if (software->publishers[index]) continue;
        software->publishers[index] = co_await publisherByTools(run, software->applications[index]);
    }
}

Json recordsOf(const Software& software) {
    Json records = Json::array();
    for (std::size_t i = 0; i < software.applications.size(); ++i) {
        const ApplicationBundle& application = software.applications[i];
        records.push_back({{"name", application.name},
                           {"version", application.version},
                           {"publisher", software.publishers[i].value_or("")},
                           {"installed_at", application.installedAt}});
    }
    return records;
}

}  // namespace

std::optional<std::string> publisherOfBundle(const ApplicationBundle& application) {
    if (application.bundleIdentifier.starts_with("com.apple.") ||
        application.path.starts_with("/System/Applications/")) {
        return "Apple Inc.";
    }
    std::optional<std::string> company = companyNameFromCopyright(application.copyright);
    if (!company) company = companyNameFromCopyright(application.infoString);
    return company;
}

Task<std::optional<std::string>> softwarePublisher(AuditRun& run, ApplicationBundle application) {
    std::optional<std::string> publisher = publisherOfBundle(application);
    if (!publisher) publisher = co_await publisherByTools(run, std::move(application));
    co_return publisher;
}

Task<Json> installedSoftware(AuditRun& run) {
    auto scan = [root = run.root] { return scanSoftware(root); };
    Software software = co_await run.workers.run(std::move(scan));
    std::size_t next = 0;
    SideBySide searches(run);
    for (std::size_t i = 0; i < AuditTools::toolsAtOnce; ++i) {
        searches.run("publishers", findPublishers(run, &software, &next));
    }
    co_await searches.join();
    co_return recordsOf(software);
}

}  // namespace orv

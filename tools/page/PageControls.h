#pragma once

#include <string>

#include "tools/collector/AnswerScript.h"
#include "tools/collector/ChangeCondition.h"
#include "tools/collector/ConfigSource.h"
#include "tools/collector/StalledRequests.h"
#include "tools/page/RequestRing.h"

namespace quillkit {

/// The collector's parts that the page shows and moves; all borrowed.
struct CollectorParts {
    /// "HOST:PORT" of the collector.
    std::string address;
    AnswerScript& script;
    ConfigSource& config;
    StalledRequests& stalls;
    RequestRing& requests;
    ChangeCondition& changes;
};

/// How a control of the page went: 204, or 400, 404 or 409 with a reason for people.
struct ControlOutcome {
    int status = 204;
    std::string reason;
};

/// What the page may do to the collector. Any thread.
class PageControls {
  public:
    /// The script holds no more answers than that through the page.
    static constexpr std::size_t kScriptCeiling = 200;

    explicit PageControls(const CollectorParts& parts) : parts_(parts) {}

    /// Does what stands behind the name, with the request's body:
    /// "answers" {"answers": [TEXT...]} orders answers, "answers/clear" forgets those left,
    /// "stalls/release" lets stalled requests go, "config" puts the body's JSON in the file's place,
    /// "config/restore" goes back to the file, "requests/clear" forgets the requests.
    [[nodiscard]] ControlOutcome perform(const std::string& name, const std::string& body);

    /// What the page shows beside the requests, as JSON on one line: the "collector", "answers" left,
    /// "stalled", "config"
    /// ("file" or "page"), "clearedUpTo" and the "capacity" of the ring.
    [[nodiscard]] std::string state();

  private:
    [[nodiscard]] ControlOutcome orderAnswers(const std::string& body);
    [[nodiscard]] ControlOutcome replaceConfig(const std::string& body);
    [[nodiscard]] bool hasRoomFor(const std::vector<std::string>& answers);

    const CollectorParts parts_;
};

}  // namespace quillkit

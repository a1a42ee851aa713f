#include "host/requests.h"

#include "host/parser_flow.h"
#include "host/request_visitor.h"

namespace {

constexpr int64_t kMicrosecondsPerMillisecond = 1000;

// Truncates toward zero: -1999 microseconds are -1 millisecond.
int64_t Milliseconds(int64_t microseconds) { return microseconds / kMicrosecondsPerMillisecond; }

}  // namespace

Request::~Request() = default;

KeyValueList* Request::GetKeyValueListIfExisting() { return key_values.get(); }

BeginRequest::~BeginRequest() = default;

EndRequest::~EndRequest() { extra_items.reset(); }

void EndRequest::AddFbsId(const std::string& id, int count) {
  if (!stitching) stitching = std::make_unique<Stitching>();
  stitching->ids.push_back(id);
  stitching->counts.push_back(count);
}

void EndRequest::Visit(RequestVisitor* visitor) const {
  visitor->VisitString("RequestPattern", request_pattern);
  visitor->VisitInt64("BytesRequest", bytes_request);
  visitor->VisitInt64("BytesResponse", bytes_response);
  visitor->VisitInt32("ResponseTime", static_cast<int>(Milliseconds(response_time.ticks)));
  if (result_code != kNoResultCode) visitor->VisitInt32("ResultCode", result_code);
  visitor->VisitTimestamp("Timestamp", Milliseconds(start_time.ticks));
  VisitClient(visitor);
  VisitStitching(visitor);
  VisitKeyValues(visitor);
}

int EndRequest::GetNumErrors() const { return num_errors; }

void EndRequest::VisitClient(RequestVisitor* visitor) const {
  if (flow->client_side != kClientIsLocal && flow->client_side != kClientIsRemote) return;
  const bool local = flow->client_side == kClientIsLocal;
  const uint32_t address = local ? flow->local_ipv4 : flow->remote_ipv4;
  const uint16_t port = local ? flow->local_port : flow->remote_port;
  if (address != 0) visitor->VisitInt32("ClientIPv4", static_cast<int>(address));
  if (port != 0) visitor->VisitUInt16("Join.ClientPort", port);
}

void EndRequest::VisitStitching(RequestVisitor* visitor) const {
  if (!stitching) return;
  visitor->VisitStringList("StitchingIDs", stitching->ids);
  const bool one_zero = stitching->counts.size() == 1 && stitching->counts.front() == 0;
  if (!one_zero) visitor->VisitInt32List("StitchingCounts", stitching->counts);
}

void EndRequest::VisitKeyValues(RequestVisitor* visitor) const {
  if (!key_values) return;
  for (const auto& item : *key_values) {
    if (item) item->Visit(visitor);
  }
}

ExtendedEndRequest::~ExtendedEndRequest() = default;

void ExtendedEndRequest::Visit(RequestVisitor* visitor) const {
  EndRequest::Visit(visitor);
  for (const auto& [key, value] : strings) visitor->VisitString(key.c_str(), value.c_str());
}

void ExtendedEndRequest::AddString(const std::string& key, const std::string& value) { strings[key] = value; }

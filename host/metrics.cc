#include "host/metrics.h"

#include "host/request_visitor.h"
#include "host/requests.h"

bool DNSIntermediateKey::operator<(const IIntermediateKey& other) const {
  return result_code < static_cast<const DNSIntermediateKey&>(other).result_code;
}

void DNSIntermediateKey::Serialize(IEventNode* node) const { node->AddInt32("ResultCode", result_code); }

DNSRequestMetricSpecification::DNSRequestMetricSpecification() : RequestMetricSpecification("dns", kDnsSpecId) {}

const IIntermediateKey* DNSRequestMetricSpecification::MakeKey(const EndRequest* request) const {
  return new DNSIntermediateKey(request->result_code);
}

void DNSRequestMetricSpecification::ReleaseKey(const IIntermediateKey* key) const { delete key; }

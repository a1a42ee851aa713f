#pragma once

#include <cstdint>
#include <string>

class EndRequest;
class IEventNode;

// A key that groups end records. Keys of different specifications are never compared.
class IIntermediateKey {
 public:
  virtual ~IIntermediateKey() = default;

  virtual bool operator<(const IIntermediateKey& other) const = 0;

  // Writes the key's attributes into the node.
  virtual void Serialize(IEventNode* node) const = 0;
};

// How the records of one protocol are grouped for aggregated metrics.
class RequestMetricSpecification {
 public:
  virtual ~RequestMetricSpecification() = default;

  // A new key for the record. The caller owns it until it gives it back to ReleaseKey.
  virtual const IIntermediateKey* MakeKey(const EndRequest* request) const = 0;

  // Destroys a key made by MakeKey. Null is ignored.
  virtual void ReleaseKey(const IIntermediateKey* key) const = 0;

  std::string name;
  int32_t spec_id = 0;

 protected:
  RequestMetricSpecification(std::string specification_name, int32_t id)
      : name(static_cast<std::string&&>(specification_name)), spec_id(id) {}
};

// DNS records are grouped by result code alone; names would make a group each.
class DNSIntermediateKey : public IIntermediateKey {
 public:
  explicit DNSIntermediateKey(int32_t code) : result_code(code) {}

  // `other` must be a DNSIntermediateKey.
  bool operator<(const IIntermediateKey& other) const override;

  // Writes "ResultCode".
  void Serialize(IEventNode* node) const override;

  int32_t result_code;
};

class DNSRequestMetricSpecification : public RequestMetricSpecification {
 public:
  DNSRequestMetricSpecification();

  const IIntermediateKey* MakeKey(const EndRequest* request) const override;
  void ReleaseKey(const IIntermediateKey* key) const override;
};

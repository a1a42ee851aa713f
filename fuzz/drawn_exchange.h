#pragma once

#include <string>
#include <string_view>

#include "collector/output/exchange_for_tests.h"
#include "collector/plugin/question.h"
#include "fuzz/draw.h"
#include "fuzz/target.h"

namespace fuzz {

// An exchange with anything in it.
struct DrawnExchange : output::ExchangeForTests {
  explicit DrawnExchange(Draw* input) {
    const uint8_t bits = input->U8();
    status = static_cast<plugin::Status>(bits & 3);
    has_response = status == plugin::Status::kAnswered || status == plugin::Status::kMalformed;
    question_mismatch = (bits & 4) != 0;
    cut = (bits & 8) != 0;
    transport = (bits & 16) != 0 ? 6 : 17;
    rrsigs_known = (bits & 32) != 0;
    const bool extreme = (bits & 64) != 0;
    query_time_ns = extreme ? input->I64() : int64_t{input->U32()} * 1'000'000'000;
    response_time_ns = has_response ? (extreme ? input->I64() : query_time_ns + input->U32()) : 0;
    rtt_us = extreme ? input->I64() : input->U16();
    client_port = input->U16();
    server_port = input->U16();
    rcode = input->U16() & 0xfff;
    result_code = has_response ? rcode & 15 : -1;
    dns_id = query_flags = response_flags = input->U16();
    bytes_query = input->U16();
    bytes_response = has_response ? input->U32() : 0;
    retransmits = input->U8();
    DrawAddress(input, &client_address);
    DrawAddress(input, &server_address);
    DrawTags(input);
    DrawQuestion(input);
    if (has_response) DrawResponse(input);
    pattern = input->Text();
    answers = input->LongText();
  }

 private:
  static void DrawAddress(Draw* input, packet::Address* address) {
    const bool is_ipv6 = input->Flag();
    *address = {};
    address->version = is_ipv6 ? 6 : 4;
    for (size_t i = 0; i < (is_ipv6 ? 16U : 4U); ++i) address->octets.at(i) = input->U8();
  }

  void DrawTags(Draw* input) {
    tags.vlan_count = static_cast<uint8_t>(input->U8() % (packet::Encapsulation::kMaxTags + 1));
    for (size_t i = 0; i < tags.vlan_count; ++i) tags.vlan.at(i) = input->U16() & 0xfff;
    tags.tunnel = static_cast<packet::Tunnel>(input->U8() % (static_cast<int>(packet::Tunnel::kOther) + 1));
    if (tags.tunnel != packet::Tunnel::kNone) tags.tunnel_id = input->U32();
  }

  // As the host reads it out of a message, whatever that is.
  void DrawQuestion(Draw* input) {
    const std::string_view message = input->LongText();
    plugin::Header header;
    question_bytes.clear();
    question_count = 0;
    plugin::QuestionReader reader;
    if (plugin::ReadHeader(message, &header)) {
      const plugin::Questions questions = reader.Read(message, header);
      question_bytes = questions.bytes;
      question_count = questions.count;
      question_cut = !questions.complete;
      Must(plugin::SameQuestions(questions, questions), "a question is the same as itself");
      Must(plugin::ExtendedRcode(message, header, questions.end) < 4096, "an extended response code has 12 bits");
    }
    question = question_bytes;
  }

  void DrawResponse(Draw* input) {
    response_bytes = input->LongText();
    plugin::Header header;
    plugin::QuestionReader reader;
    if (plugin::ReadHeader(response_bytes, &header)) response_records = reader.Read(response_bytes, header).end;
    response = response_bytes;
  }
};

}  // namespace fuzz

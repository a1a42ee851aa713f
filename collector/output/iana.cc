#include "collector/output/iana.h"

#include <array>

#include "collector/output/text.h"

namespace output {
namespace {

struct Code {
  uint16_t number;
  const char* name;
};

constexpr Code kTypes[] = {
    {1, "A"},        {2, "NS"},      {3, "MD"},          {4, "MF"},     {5, "CNAME"},      {6, "SOA"},
    {7, "MB"},       {8, "MG"},      {9, "MR"},          {10, "NULL"},  {11, "WKS"},       {12, "PTR"},
    {13, "HINFO"},   {14, "MINFO"},  {15, "MX"},         {16, "TXT"},   {17, "RP"},        {18, "AFSDB"},
    {19, "X25"},     {20, "ISDN"},   {21, "RT"},         {22, "NSAP"},  {23, "NSAP-PTR"},  {24, "SIG"},
    {25, "KEY"},     {26, "PX"},     {27, "GPOS"},       {28, "AAAA"},  {29, "LOC"},       {30, "NXT"},
    {31, "EID"},     {32, "NIMLOC"}, {33, "SRV"},        {34, "ATMA"},  {35, "NAPTR"},     {36, "KX"},
    {37, "CERT"},    {38, "A6"},     {39, "DNAME"},      {40, "SINK"},  {41, "OPT"},       {42, "APL"},
    {43, "DS"},      {44, "SSHFP"},  {45, "IPSECKEY"},   {46, "RRSIG"}, {47, "NSEC"},      {48, "DNSKEY"},
    {49, "DHCID"},   {50, "NSEC3"},  {51, "NSEC3PARAM"}, {52, "TLSA"},  {53, "SMIMEA"},    {55, "HIP"},
    {56, "NINFO"},   {57, "RKEY"},   {58, "TALINK"},     {59, "CDS"},   {60, "CDNSKEY"},   {61, "OPENPGPKEY"},
    {62, "CSYNC"},   {63, "ZONEMD"}, {64, "SVCB"},       {65, "HTTPS"}, {66, "DSYNC"},     {67, "HHIT"},
    {68, "BRID"},    {99, "SPF"},    {100, "UINFO"},     {101, "UID"},  {102, "GID"},      {103, "UNSPEC"},
    {104, "NID"},    {105, "L32"},   {106, "L64"},       {107, "LP"},   {108, "EUI48"},    {109, "EUI64"},
    {128, "NXNAME"}, {249, "TKEY"},  {250, "TSIG"},      {251, "IXFR"}, {252, "AXFR"},     {253, "MAILB"},
    {254, "MAILA"},  {255, "ANY"},  // the registry's "*"
    {256, "URI"},    {257, "CAA"},   {258, "AVC"},       {259, "DOA"},  {260, "AMTRELAY"}, {261, "RESINFO"},
    {262, "WALLET"}, {263, "CLA"},   {264, "IPN"},       {32768, "TA"}, {32769, "DLV"},
};

constexpr Code kClasses[] = {
    {1, "IN"}, {3, "CH"}, {4, "HS"}, {254, "NONE"}, {255, "ANY"},
};

constexpr Code kRcodes[] = {
    {0, "NOERROR"},  {1, "FORMERR"},    {2, "SERVFAIL"}, {3, "NXDOMAIN"},  {4, "NOTIMP"},
    {5, "REFUSED"},  {6, "YXDOMAIN"},   {7, "YXRRSET"},  {8, "NXRRSET"},   {9, "NOTAUTH"},
    {10, "NOTZONE"}, {11, "DSOTYPENI"}, {16, "BADVERS"}, {17, "BADKEY"},   {18, "BADTIME"},
    {19, "BADMODE"}, {20, "BADNAME"},   {21, "BADALG"},  {22, "BADTRUNC"}, {23, "BADCOOKIE"},
};

// Names below Size by index; what lies above is searched for.
template <size_t Size, size_t Count>
class Names {
 public:
  constexpr explicit Names(const Code (&all)[Count]) : codes(all) {
    for (const Code& code : all) {
      if (code.number < Size) direct[code.number] = Word(code.name);
    }
  }

  std::string_view Find(uint16_t number) const {
    if (number < Size) return direct[number].text();
    for (const Code& code : codes) {
      if (code.number == number) return code.name;
    }
    return {};
  }

  // The name, or the number behind the prefix.
  char* Put(char* out, std::string_view prefix, uint16_t number) const {
    if (number < Size && !direct[number].empty()) [[likely]] {
      return direct[number].Put(out);
    }
    const std::string_view name = Find(number);
    return name.empty() ? PutInteger(PutText(out, prefix), number) : PutText(out, name);
  }

 private:
  const Code (&codes)[Count];
  std::array<Word, Size> direct{};
};

constexpr Names<265, std::size(kTypes)> kTypeNames(kTypes);
constexpr Names<256, std::size(kClasses)> kClassNames(kClasses);
constexpr Names<24, std::size(kRcodes)> kRcodeNames(kRcodes);

}  // namespace

std::string_view TypeName(uint16_t type) { return kTypeNames.Find(type); }
std::string_view ClassName(uint16_t number) { return kClassNames.Find(number); }
std::string_view RcodeName(uint16_t rcode) { return kRcodeNames.Find(rcode); }

char* PutType(char* out, uint16_t type) { return kTypeNames.Put(out, "TYPE", type); }
char* PutClass(char* out, uint16_t number) { return kClassNames.Put(out, "CLASS", number); }
char* PutRcode(char* out, uint16_t rcode) { return kRcodeNames.Put(out, "RCODE", rcode); }

}  // namespace output

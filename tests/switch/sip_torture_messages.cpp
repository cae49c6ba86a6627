#include "sip_torture_messages.h"

namespace kvx_switch {

namespace {

/// What most of them have in common: everything between the start line and the body.
std::string Headers(const std::string& id, const std::string& method) {
  return "Via: SIP/2.0/UDP {me};branch=z9hG4bK-" + id + "\nMax-Forwards: 70\nFrom: <sip:caller@example.net>;tag=" + id +
         "\nTo: <sip:user@example.com>\nCall-ID: " + id + "\nCSeq: 7 " + method + "\nContact: <sip:caller@{me}>\n";
}

std::string Request(const std::string& id, const std::string& method, const std::string& more = "") {
  return method + " sip:user@{switch} SIP/2.0\n" + Headers(id, method) + more + "Content-Length: 0\n\n";
}

const char* const kSdp =
    "v=0\r\no=mhandley 29739 7272939 IN IP4 192.0.2.3\r\ns=-\r\nc=IN IP4 192.0.2.4\r\nt=0 0\r\n"
    "m=audio 49217 RTP/AVP 0 12\r\na=rtpmap:31 LPC\r\n";

std::string Invite(const std::string& id, const std::string& more = "", const std::string& start = "") {
  return (start.empty() ? "INVITE sip:user@{switch} SIP/2.0" : start) + "\n" + Headers(id, "INVITE") + more +
         "Content-Type: application/sdp\nContent-Length: " + std::to_string(std::string(kSdp).size()) + "\n\n" + kSdp;
}

/// An INVITE that is understood reaches the dialplan, which has nothing for "user".
const std::vector<int> kRouted = {404};
const std::vector<int> kNotServed = {405, 501};
const std::vector<int> kNothing = {0};

}  // namespace

std::vector<TortureMessage> UnusualMessages() {
  const std::string size = std::to_string(std::string(kSdp).size());
  const std::string many(300, 'l');
  const std::string binary =
      "--7a9cbec02ceef655\r\n" + std::string("\x01\x80\xff\x7f\x02\xfe\x03\xfd", 8) + "\r\n--7a9cbec02ceef655--";
  return {
      {"wsinv",
       "INVITE sip:vivekg@{switch};unknownparam SIP/2.0\nTO :\n sip:vivekg@example.com ;   tag    = 1918181833n\n"
       "from   : \"J Rosenberg \\\\\\\"\"       <sip:jdrosen@example.com>\n  ;\n  tag = 98asjd8\n"
       "MaX-fOrWaRdS: 0068\nCall-ID: wsinv.ndaksdj@192.0.2.1\nContent-Length   : " +
           size +
           "\ncseq: 0009\n  INVITE\nVia  : SIP  /   2.0\n /UDP\n    {me};branch=390skdjuw\ns :\n"
           "NewFangledHeader:   newfangled value\n continued newfangled value\n"
           "UnknownHeaderWithUnusualValue: ;;,,;;,;\nContent-Type: application/sdp\n"
           "Route:\n <sip:services.example.com;lr;unknownwith=value;unknown-no-value>\n"
           "v:  SIP  / 2.0  / TCP     spindle.example.com   ;\n  branch  =   z9hG4bK9ikj8  ,\n"
           " SIP  /    2.0   / UDP  192.168.255.111   ; branch=\n z9hG4bK30239\n"
           "m:\"Quoted string \\\"\\\"\" <sip:jdrosen@{me}> ; newparam =\n      newvalue ;\n  secondparam ; q = "
           "0.33\n\n" +
           kSdp,
       {481}},  // it has a To tag, and there is no such dialog
      // The stack passes it over: the method has characters that it does not know in one.
      {"intmeth",
       "!interesting-Method0123456789_*+`.%indeed'~ sip:user@{switch} SIP/2.0\n" +
           Headers("intmeth", "!interesting-Method0123456789_*+`.%indeed'~") + "Content-Length: 0\n\n",
       {0, 405, 501}},
      {"esc01", Invite("esc01", "", "INVITE sip:sips%3Auser%40example.com@{switch} SIP/2.0"), kRouted},
      {"escnull",
       "REGISTER sip:{switch} SIP/2.0\nVia: SIP/2.0/UDP {me};branch=z9hG4bK-escnull\nMax-Forwards: 70\n"
       "From: sip:null-%00-null@example.com;tag=839923423\nTo: sip:null-%00-null@example.com\nCall-ID: escnull\n"
       "CSeq: 14398234 REGISTER\nContact: <sip:%00@host5.example.com>\nContact: <sip:%00%00@host5.example.com>\n"
       "L:0\n\n",
       kNotServed},
      {"esc02", "RE%47IST%45R sip:{switch} SIP/2.0\n" + Headers("esc02", "RE%47IST%45R") + "Content-Length: 0\n\n",
       kNotServed},
      {"lwsdisp",
       "OPTIONS sip:user@{switch} SIP/2.0\nTo: sip:user@example.com\nFrom: caller<sip:caller@example.com>;tag=323\n"
       "Max-Forwards: 70\nCall-ID: lwsdisp\nCSeq: 60 OPTIONS\nVia: SIP/2.0/UDP {me};branch=z9hG4bKkdjuw\nl: 0\n\n",
       {200}},
      {"longreq",
       Invite("longreq",
              "F" + many + "Header: " + many + "\nRecord-Route: <sip:" + many + ".example.com;lr>\nAccept-Contact: *;" +
                  many + "=" + many + "\nX-" + many + ": " + std::string(2000, 'v') + "\n",
              "INVITE sip:user@{switch};unknown" + many + "=" + many + " SIP/2.0"),
       kRouted},
      {"dblreq",
       Request("dblreq", "REGISTER") + "INVITE sip:joe@example.com SIP/2.0\nt: <sip:joe@example.com>\n\nv=0\n",
       kNotServed},
      {"semiuri",
       "OPTIONS sip:user;par=u%40example.net@{switch} SIP/2.0\n" + Headers("semiuri", "OPTIONS") +
           "Accept: application/sdp, application/pkcs7-mime,\n        multipart/mixed\nl: 0\n\n",
       {200}},
      {"transports",
       Request("transports", "OPTIONS",
               "Via: SIP/2.0/SCTP t2.example.com;branch=z9hG4bK2\nVia: SIP/2.0/TLS t3.example.com;branch=z9hG4bK3\n"
               "Via: SIP/2.0/UNKNOWN t4.example.com;branch=z9hG4bK4\n"),
       {200}},
      {"mpart01",
       "MESSAGE sip:user@{switch} SIP/2.0\n" + Headers("mpart01", "MESSAGE") +
           "Content-Type: multipart/mixed;boundary=7a9cbec02ceef655\nContent-Length: " + std::to_string(binary.size()) +
           "\n\n" + binary,
       kNotServed},
      {"unreason",
       "SIP/2.0 200 = 2**3 * 5**2 \xd0\xbd\xd0\xbe \xd1\x81\xd1\x82\xd0\xbe\nVia: SIP/2.0/UDP 192.0.2.198;branch="
       "z9hG4bK1324923\nCall-ID: unreason\nCSeq: 35 INVITE\nFrom: sip:user@example.com;tag=1\nTo: sip:u@x.com;tag=2\n"
       "Content-Length: 0\nContact: <sip:user@host198.example.com>\n\n",
       kNothing},
      {"noreason",
       "SIP/2.0 100 \nVia: SIP/2.0/UDP 192.0.2.105;branch=z9hG4bK2398ndaoe\nCall-ID: noreason\nCSeq: 35 INVITE\n"
       "From: <sip:user@example.com>;tag=39ansfi3\nTo: <sip:user@example.edu>;tag=902jndnke3\nContent-Length: 0\n\n",
       kNothing},
  };
}

std::vector<TortureMessage> InvalidMessages() {
  return {
      {"badinv01",
       "INVITE sip:user@{switch} SIP/2.0\nTo: sip:j.user@example.com\nFrom: sip:caller@example.net;tag=134161461246\n"
       "Max-Forwards: 7\nCall-ID: badinv01\nCSeq: 8 INVITE\nVia: SIP/2.0/UDP {me};;,;,,\n"
       "Contact: \"Joe\" <sip:joe@example.org>;;;;\nContent-Length: 0\n\n",
       {0, 400}},
      {"clerr",
       "INVITE sip:user@{switch} SIP/2.0\n" + Headers("clerr", "INVITE") +
           "Content-Type: application/sdp\nContent-Length: 9999\n\n" + kSdp,
       {0, 400}},
      {"ncl",
       "INVITE sip:user@{switch} SIP/2.0\n" + Headers("ncl", "INVITE") +
           "Content-Type: application/sdp\nContent-Length: -999\n\n" + kSdp,
       {0, 400}},
      {"scalar02",
       "REGISTER sip:{switch} SIP/2.0\nVia: SIP/2.0/UDP {me};branch=z9hG4bK342sdfoi3\nTo: <sip:user@example.com>\n"
       "From: <sip:user@example.com>;tag=239232jh3\nCSeq: 36893488147419103232 REGISTER\nCall-ID: scalar02\n"
       "Max-Forwards: 300\nExpires: 10000000000000000000000000000000000000000000000000000\n"
       "Contact: <sip:user@host129.example.com>\n  ;expires=280297596632815\nContent-Length: 0\n\n",
       {0, 400, 405, 501}},
      {"scalarlg",
       "SIP/2.0 503 Service Unavailable\nVia: SIP/2.0/UDP 192.0.2.128;branch=z9hG4bKzzxdiwo34sw\n"
       "To: <sip:user@example.com>\nFrom: <sip:other@example.net>;tag=2easdjfejw\nCSeq: 9292394834772304023312 "
       "OPTIONS\n"
       "Call-ID: scalarlg\nRetry-After: 949302838503028349304023988\nWarning: 1812 overture \"In Progress\"\n"
       "Content-Length: 0\n\n",
       kNothing},
      {"quotbal",
       "INVITE sip:user@{switch} SIP/2.0\nTo: \"Mr. J. User <sip:j.user@example.com>\n"
       "From: sip:caller@example.net;tag=93334\nMax-Forwards: 10\nCall-ID: quotbal\nContact: \"Joe\" <sip:joe@{me}>\n"
       "CSeq: 8 INVITE\nVia: SIP/2.0/UDP {me};branch=z9hG4bKkdjuw39234\nContent-Type: application/sdp\n"
       "Content-Length: 0\n\n",
       {400}},
      {"ltgtruri", Invite("ltgtruri", "", "INVITE <sip:user@{switch}> SIP/2.0"), {0, 400}},
      {"lwsruri", Invite("lwsruri", "", "INVITE sip:user@{switch}; lr SIP/2.0"), {0, 400, 505}},
      {"lwsstart", Invite("lwsstart", "", "INVITE  sip:user@{switch}  SIP/2.0"), {0, 400, 404}},
      {"trws", "OPTIONS sip:user@{switch} SIP/2.0  \n" + Headers("trws", "OPTIONS") + "l: 0\n\n", {0, 200, 400}},
      {"escruri", Invite("escruri", "", "INVITE sip:user@{switch}?Route=%3Csip:example.com%3E SIP/2.0"), {400, 404}},
      {"baddate", Invite("baddate", "Date: Fri, 01 Jan 2010 16:00:00 EST\n"), {400, 404}},
      {"regbadct",
       Request("regbadct", "REGISTER", "Contact: sip:user@example.com?Route=%3Csip:sip.example.com%3E\n"),
       {400, 405, 501}},
      {"badaspec",
       "OPTIONS sip:user@{switch} SIP/2.0\nVia: SIP/2.0/UDP {me};branch=z9hG4bK-badaspec\nMax-Forwards: 3\n"
       "From: \"Bell, Alexander\" <sip:a.g.bell@example.com>;tag=43\nTo: \"Watson, Thomas\" < sip:t.watson@example.org "
       ">\n"
       "Call-ID: badaspec\nCSeq: 3 OPTIONS\nAccept: application/sdp\nl: 0\n\n",
       {200, 400}},
      {"baddn",
       "OPTIONS sip:user@{switch} SIP/2.0\nVia: SIP/2.0/UDP {me};branch=z9hG4bK-baddn\nMax-Forwards: 3\n"
       "From: Bell, Alexander <sip:a.g.bell@example.com>;tag=43\nTo: Watson, Thomas <sip:t.watson@example.org>\n"
       "Call-ID: baddn\nCSeq: 31417 OPTIONS\nAccept: application/sdp\nl: 0\n\n",
       {200, 400}},
      {"badvers", "OPTIONS sip:user@{switch} SIP/7.0\n" + Headers("badvers", "OPTIONS") + "l: 0\n\n", {0, 400, 505}},
      {"mismatch01", "OPTIONS sip:user@{switch} SIP/2.0\n" + Headers("mismatch01", "INVITE") + "l: 0\n\n", {0, 400}},
      {"mismatch02",
       "NEWMETHOD sip:user@{switch} SIP/2.0\n" + Headers("mismatch02", "INVITE") + "l: 0\n\n",
       {0, 400, 405, 501}},
      {"bigcode",
       "SIP/2.0 4294967301 better not break the receiver\nVia: SIP/2.0/UDP 192.0.2.105;branch=z9hG4bK2398ndaoe\n"
       "Call-ID: bigcode\nCSeq: 353494 INVITE\nFrom: <sip:user@example.com>;tag=39ansfi3\n"
       "To: <sip:user@example.edu>;tag=902jndnke3\nContent-Length: 0\n\n",
       kNothing},
  };
}

std::vector<TortureMessage> TroublesomeMessages() {
  return {
      {"badbranch",
       "OPTIONS sip:user@{switch} SIP/2.0\nTo: sip:user@example.com\nFrom: sip:caller@example.org;tag=33242\n"
       "Max-Forwards: 3\nVia: SIP/2.0/UDP {me};branch=z9hG4bK\nAccept: application/sdp\nCall-ID: badbranch\n"
       "CSeq: 8 OPTIONS\nl: 0\n\n",
       {200}},
      {"insuf",
       "INVITE sip:user@{switch} SIP/2.0\nCSeq: 193942 INVITE\nVia: SIP/2.0/UDP {me};branch=z9hG4bKkdj\n"
       "Content-Type: application/sdp\nl: 0\n\n",
       {0, 400}},
      {"unkscm",
       "OPTIONS nobodyKnowsThisScheme:totallyopaquecontent SIP/2.0\n" + Headers("unkscm", "OPTIONS") + "l: 0\n\n",
       {400, 416}},
      {"novelsc",
       "OPTIONS soap.beep://192.0.2.103:3002 SIP/2.0\n" + Headers("novelsc", "OPTIONS") + "l: 0\n\n",
       {400, 416}},
      {"unksm2", Request("unksm2", "REGISTER", "Contact: <name:John_Smith>\n"), kNotServed},
      {"bext01",
       Request("bext01", "OPTIONS",
               "Require: nothingSupportsThis, nothingSupportsThisEither\n"
               "Proxy-Require: noProxiesSupportThis\n"),
       {420}},
      {"invut",
       "INVITE sip:user@{switch} SIP/2.0\n" + Headers("invut", "INVITE") +
           "Content-Type: application/unknownformat\nContent-Length: 11\n\n<a>\n<b/>\n\n",
       {400, 415}},
      {"regaut01", Request("regaut01", "REGISTER", "Authorization: NoOneKnowsThisScheme opaque-data=here\n"),
       kNotServed},
      {"multi01",
       Invite("multi01",
              "CSeq: 59 INVITE\nCall-ID: another\nMax-Forwards: 5\nTo: <sip:other@example.com>\n"
              "From: <sip:other@example.net>;tag=3413\nContent-Type: text/plain\n"),
       {0, 400}},
      {"mcl01",
       "OPTIONS sip:user@{switch} SIP/2.0\n" + Headers("mcl01", "OPTIONS") +
           "Content-Length: 13\nContent-Length: 5\nContent-Type: text/plain\n\nThere's no way to know how many octets",
       {0, 200, 400}},
      {"bcast",
       "SIP/2.0 200 OK\nVia: SIP/2.0/UDP 192.0.2.198;branch=z9hG4bK1324923\nVia: SIP/2.0/UDP 255.255.255.255;"
       "branch=z9hG4bK1saber23\nCall-ID: bcast\nCSeq: 35 INVITE\nFrom: sip:user@example.com;tag=1\n"
       "To: sip:user@example.com;tag=2\nContact: <sip:user@host28.example.com>\nContent-Length: 0\n\n",
       kNothing},
      {"zeromf",
       "OPTIONS sip:user@{switch} SIP/2.0\nTo: sip:user@example.com\nFrom: sip:caller@example.net;tag=3ghsd41\n"
       "Call-ID: zeromf\nCSeq: 39234321 OPTIONS\nVia: SIP/2.0/UDP {me};branch=z9hG4bKkdjuw2349i\nMax-Forwards: 0\n"
       "Content-Length: 0\n\n",
       {200, 483}},
      {"cparam01", Request("cparam01", "REGISTER", "Contact: sip:+19725552222@gw1.example.net;unknownparam\n"),
       kNotServed},
      {"cparam02", Request("cparam02", "REGISTER", "Contact: <sip:+19725552222@gw1.example.net;unknownparam>\n"),
       kNotServed},
      {"regescrt", Request("regescrt", "REGISTER", "Contact: <sip:user@example.com?Route=%3Csip:sip.example.com%3E>\n"),
       kNotServed},
      {"sdp01", Invite("sdp01", "Accept: text/nobodyKnowsThis\n"), {404, 406}},
      {"inv2543",
       "INVITE sip:user@{switch} SIP/2.0\nVia: SIP/2.0/UDP {me}\nFrom: <sip:iuser@{me}>\nTo: sip:user@example.com\n"
       "Call-ID: inv2543\nCSeq: 56 INVITE\nContact: <sip:iuser@{me}>\nContent-Type: application/sdp\n\n" +
           std::string(kSdp),
       {400, 404}},
  };
}

}  // namespace kvx_switch

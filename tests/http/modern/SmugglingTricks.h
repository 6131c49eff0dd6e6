// Requests that two servers might understand in two ways, so that one of them could be made to see a request that the
// other took for a body. Each is refused, or read the one way that RFC 9112 allows.
#pragma once

#include <string_view>
#include <vector>

#include "tests/http/modern/ReadRequests.h"

namespace TesselServer::Modern {

struct Trick {
  std::string_view bytes;
  const char* outcome;  // as Outcome::text
  const char* why;
};

// What a request with a body is made of, to be read at a glance.
#define POST_HEAD "POST / HTTP/1.1\r\nHost: a\r\n"
#define CHUNKED_HEAD POST_HEAD "Transfer-Encoding: chunked\r\n\r\n"
#define NEXT "GET /x HTTP/1.1\r\nHost: a\r\n\r\n"

inline const Trick kLengthBesideCodingTricks[] = {
    {POST_HEAD "Content-Length: 5\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n" NEXT, "400",
     "the length first: RFC 9112 6.1 lets a server refuse both"},
    {POST_HEAD "Transfer-Encoding: chunked\r\nContent-Length: 5\r\n\r\n0\r\n\r\n" NEXT, "400", "the coding first"},
    {POST_HEAD "Transfer-Encoding: chunked\r\nContent-Length: 0\r\n\r\n0\r\n\r\n", "400", "a length of zero is one"},
    {POST_HEAD "transfer-encoding: Chunked\r\ncontent-length: 5\r\n\r\n0\r\n\r\n", "400", "names in any case"},
    {POST_HEAD "Transfer-Encoding: identity\r\nContent-Length: 3\r\n\r\nabc", "400", "a coding that was given up"},
    {POST_HEAD "Transfer-Encoding:\r\nContent-Length: 3\r\n\r\nabc", "400", "an empty coding"},
    {POST_HEAD "Content-Length: 3\r\nTransfer-Encoding : chunked\r\n\r\nabc", "400",
     "a blank before the colon hides no field (RFC 9112 5.1)"},
    {POST_HEAD "Content-Length: 3\r\nTransfer-Encoding\t: chunked\r\n\r\nabc", "400", "an HTAB before the colon"},
    {POST_HEAD "Content-Length: 3\r\n Transfer-Encoding: chunked\r\n\r\nabc", "400", "a field that looks folded"},
    {POST_HEAD "Content-Length: 3\r\nX: y\rTransfer-Encoding: chunked\r\n\r\nabc", "400", "a bare CR ends no line"},
    {POST_HEAD "Content-Length: 3\r\nX: y\nTransfer-Encoding: chunked\r\n\r\nabc", "400",
     "a bare LF does (RFC 9112 2.2): both fields are there"},
};

inline const Trick kCodingsTricks[] = {
    {CHUNKED_HEAD "3\r\nabc\r\n0\r\n\r\n" NEXT, "POST / [abc] | GET /x", "as it should be"},
    {POST_HEAD "Transfer-Encoding: CHUNKED\r\n\r\n0\r\n\r\n" NEXT, "POST / [] | GET /x",
     "names of codings have no case (RFC 9112 7)"},
    {POST_HEAD "Transfer-Encoding: xchunked\r\n\r\n0\r\n\r\n", "400", "chunked is not the last"},
    {POST_HEAD "Transfer-Encoding: chunkedx\r\n\r\n0\r\n\r\n", "400", "nor here"},
    {POST_HEAD "Transfer-Encoding: chunked, identity\r\n\r\n0\r\n\r\n", "400", "something after chunked"},
    {POST_HEAD "Transfer-Encoding: identity, chunked\r\n\r\n0\r\n\r\n", "501", "a coding that is not known"},
    {POST_HEAD "Transfer-Encoding: gzip, chunked\r\n\r\n0\r\n\r\n", "501", "one that is not known here"},
    {POST_HEAD "Transfer-Encoding: gzip\r\n\r\n0\r\n\r\n", "400", "its length cannot be known (RFC 9112 6.3)"},
    {POST_HEAD "Transfer-Encoding: chunked, chunked\r\n\r\n0\r\n\r\n", "400", "twice (RFC 9112 6.1)"},
    {POST_HEAD "Transfer-Encoding: chunked\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n", "400",
     "twice, in two lines"},
    {POST_HEAD "Transfer-Encoding: chunked\r\nTransfer-Encoding: cow\r\n\r\n0\r\n\r\n", "400", "another one behind it"},
    {POST_HEAD "Transfer-Encoding: cow\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n", "501", "another one before it"},
    {POST_HEAD "Transfer-Encoding: , chunked,\r\n\r\n0\r\n\r\n" NEXT, "POST / [] | GET /x",
     "empty elements of a list say nothing (RFC 9110 5.6.1.2)"},
    {POST_HEAD "Transfer-Encoding: \tchunked\t \r\n\r\n0\r\n\r\n" NEXT, "POST / [] | GET /x",
     "white space around a value is no part of it (RFC 9110 5.5)"},
    {POST_HEAD "Transfer-Encoding: \x0b"
               "chunked\r\n\r\n0\r\n\r\n",
     "400", "VT is no white space"},
    {POST_HEAD "Transfer-Encoding: chunked\x0c\r\n\r\n0\r\n\r\n", "400", "nor is FF"},
    {Bytes(POST_HEAD "Transfer-Encoding: chunked\0\r\n\r\n0\r\n\r\n"), "400", "NUL ends no text"},
    {POST_HEAD "Transfer-Encoding: chunked\x85\r\n\r\n0\r\n\r\n", "400", "a byte that some take for a line end"},
    {POST_HEAD "Transfer-Encoding: \xA0"
               "chunked\r\n\r\n0\r\n\r\n",
     "400", "a byte that some take for a blank"},
    {POST_HEAD "Transfer-Encoding: \xEF\xBB\xBF"
               "chunked\r\n\r\n0\r\n\r\n",
     "400", "a mark of UTF-8"},
    {POST_HEAD "Transfer-Encoding: \"chunked\"\r\n\r\n0\r\n\r\n", "400", "no token"},
    {POST_HEAD "Transfer-Encoding: 'chunked'\r\n\r\n0\r\n\r\n", "400", "a token, another one"},
    {POST_HEAD "Transfer-Encoding: chunked;q=1\r\n\r\n0\r\n\r\n", "400", "chunked has no parameters (RFC 9112 7.1)"},
    {POST_HEAD "Transfer-Encoding: chunked;\r\n\r\n0\r\n\r\n", "400", "not even none"},
    {POST_HEAD "Transfer-Encoding: chun ked\r\n\r\n0\r\n\r\n", "400", "a blank within"},
    {POST_HEAD "Transfer-Encoding: chunked chunked\r\n\r\n0\r\n\r\n", "400", "a blank between"},
    {POST_HEAD "Transfer-Encoding:\r\n chunked\r\n\r\n0\r\n\r\n", "400", "folded (RFC 9112 5.2)"},
    {POST_HEAD "Transfer-Encoding: chunked\r\n , identity\r\n\r\n0\r\n\r\n", "400", "folded behind it"},
    {POST_HEAD "Transfer-Encoding: chu\r\n\tnked\r\n\r\n0\r\n\r\n", "400", "folded within"},
    {POST_HEAD "Transfer_Encoding: chunked\r\n\r\n" NEXT, "POST / | GET /x",
     "another field; this one is without a body"},
    {POST_HEAD "Transfer Encoding: chunked\r\n\r\n", "400", "no name"},
    {POST_HEAD "Transfer-Encodings: chunked\r\n\r\n" NEXT, "POST / | GET /x", "so is this"},
    {POST_HEAD "X-Transfer-Encoding: chunked\r\n\r\n" NEXT, "POST / | GET /x", "a longer name is another field"},
    {POST_HEAD "\x01Transfer-Encoding: chunked\r\n\r\n", "400", "a control before the name"},
    {POST_HEAD "TRANSFER-ENCODING: chunked\r\n\r\n0\r\n\r\n" NEXT, "POST / [] | GET /x",
     "names of fields have no case"},
    {"POST / HTTP/1.0\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n", "400",
     "HTTP/1.0 knows no codings: an old proxy passed it on unread (RFC 9112 6.1)"},
    {"GET / HTTP/1.1\r\nHost: a\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n0\r\n\r\n" NEXT,
     "GET / [abc] | GET /x", "a GET has its body, too"},
};

inline const Trick kLengthsTricks[] = {
    {POST_HEAD "Content-Length: 3\r\n\r\nabc" NEXT, "POST / [abc] | GET /x", "as it should be"},
    {POST_HEAD "Content-Length: +3\r\n\r\nabc", "400", "a sign"},
    {POST_HEAD "Content-Length: -3\r\n\r\nabc", "400", "below nothing"},
    {POST_HEAD "Content-Length: -0\r\n\r\n", "400", "a sign of nothing"},
    {POST_HEAD "Content-Length: 0x3\r\n\r\nabc", "400", "hexadecimal"},
    {POST_HEAD "Content-Length: 3e0\r\n\r\nabc", "400", "an exponent"},
    {POST_HEAD "Content-Length: 3.0\r\n\r\nabc", "400", "a fraction"},
    {POST_HEAD "Content-Length: 1_0\r\n\r\nabc", "400", "an underscore"},
    {POST_HEAD "Content-Length: 3 3\r\n\r\nabc", "400", "a blank within"},
    {POST_HEAD "Content-Length: \"3\"\r\n\r\nabc", "400", "quoted"},
    {POST_HEAD "Content-Length: 3;\r\n\r\nabc", "400", "something behind it"},
    {POST_HEAD "Content-Length: \x0b"
               "3\r\n\r\nabc",
     "400", "VT, that strtol would skip"},
    {Bytes(POST_HEAD "Content-Length: 3\0"
                     "4\r\n\r\nabc"),
     "400", "NUL, where strtol would end"},
    {POST_HEAD "Content-Length: \xC2\xB3\r\n\r\nabc", "400", "a digit of Unicode"},
    {POST_HEAD "Content-Length:\r\n\r\n", "400", "nothing is no number"},
    {POST_HEAD "Content-Length: \t \r\n\r\n", "400", "nor are blanks"},
    {POST_HEAD "Content-Length: 03\r\n\r\nabc" NEXT, "POST / [abc] | GET /x",
     "decimal whatever leads (RFC 9110 8.6: digits)"},
    {POST_HEAD "Content-Length: 3, 3\r\n\r\nabc" NEXT, "POST / [abc] | GET /x", "equal ones are one (RFC 9110 8.6)"},
    {POST_HEAD "Content-Length: 3\r\nContent-Length: 3\r\n\r\nabc" NEXT, "POST / [abc] | GET /x", "in two lines, too"},
    {POST_HEAD "Content-Length: 3, 4\r\n\r\nabcd", "400", "different ones"},
    {POST_HEAD "Content-Length: 3\r\nContent-Length: 4\r\n\r\nabcd", "400", "in two lines"},
    {POST_HEAD "Content-Length: 3\r\nCONTENT-LENGTH: 0\r\n\r\nabc", "400", "in two lines, names in any case"},
    {POST_HEAD "Content-Length: 3,\r\n\r\nabc", "400", "an empty element is no number"},
    {POST_HEAD "Content-Length: ,3\r\n\r\nabc", "400", "nor in front"},
    {POST_HEAD "Content-Length: 3,,3\r\n\r\nabc", "400", "nor between"},
    {POST_HEAD "Content-Length: 3\r\nContent-Length:\r\n\r\nabc", "400", "an empty one behind"},
    {POST_HEAD "Content-Length: 3\r\n 4\r\n\r\nabcd", "400", "folded"},
    {POST_HEAD "Content-Length : 3\r\n\r\nabc", "400", "a blank before the colon"},
    {POST_HEAD "Content-Length: 3\r\nContent-Length : 4\r\n\r\nabc", "400", "a blank before the second colon"},
    {POST_HEAD "Content-Length: 99999999999999999999999\r\n\r\nabc", "413", "larger than any number"},
    {POST_HEAD "Content-Length: 18446744073709551619\r\n\r\nabc", "413", "3 where 64 bits overflow"},
    {POST_HEAD "Content-Length: 4294967299\r\n\r\nabc", "413", "3 where 32 bits overflow"},
    {POST_HEAD "Content_Length: 3\r\n\r\n" NEXT, "POST / | GET /x", "another field"},
    {POST_HEAD "\r\nContent-Length: 3\r\n\r\n", "POST / | 400", "behind the blank line it begins another request"},
    {"GET / HTTP/1.1\r\nHost: a\r\nContent-Length: 28\r\n\r\n" NEXT, "GET / [" NEXT "]",
     "a body of a GET is no request"},
    {"GET / HTTP/1.0\r\nContent-Length: 3\r\n\r\nabc" NEXT, "GET / [abc] | GET /x", "nor of HTTP/1.0"},
    {POST_HEAD "\r\nabc" NEXT, "POST / | abcGET /x", "without a length there is no body (RFC 9112 6.3)"},
};

inline const Trick kChunksTricks[] = {
    {CHUNKED_HEAD "0\n\r\n", "POST / [ | 400", "an LF alone behind a size"},
    {CHUNKED_HEAD "3\nabc\r\n0\r\n\r\n", "POST / [ | 400", "an LF alone behind a size, with data"},
    {CHUNKED_HEAD "3\rabc\r\n0\r\n\r\n", "POST / [ | 400", "a CR alone behind a size"},
    {CHUNKED_HEAD "3\r\nabc\n0\r\n\r\n", "POST / [abc | 400", "an LF alone behind the data"},
    {CHUNKED_HEAD "3\r\nabc\r0\r\n\r\n", "POST / [abc | 400", "a CR alone behind the data"},
    {CHUNKED_HEAD "3\r\nabcX\r\n0\r\n\r\n", "POST / [abc | 400", "more data than the size says"},
    {CHUNKED_HEAD "3\r\nabc0\r\n\r\n", "POST / [abc | 400", "no line end behind the data"},
    {CHUNKED_HEAD "3\r\nabcXX0\r\n\r\n", "POST / [abc | 400", "two other bytes in its place"},
    {CHUNKED_HEAD "0\r\n\n", "POST / [ | 400", "an LF alone as the last line"},
    {CHUNKED_HEAD "0\r\n\rX", "POST / [ | 400", "the last LF is another byte"},
    {CHUNKED_HEAD "0\r\n" NEXT, "POST / [ | 400", "a request where trailer fields may be is one with a bad name"},
    {CHUNKED_HEAD "0\r\nX: y\r\n"
                  "0\r\n\r\n",
     "POST / [ | 400", "no colon in a trailer field"},
    {CHUNKED_HEAD " 3\r\nabc\r\n0\r\n\r\n", "POST / [ | 400", "a blank before a size"},
    {CHUNKED_HEAD "3 \r\nabc\r\n0\r\n\r\n", "POST / [ | 400", "a blank behind it, and no extension"},
    {CHUNKED_HEAD "3\t\r\nabc\r\n0\r\n\r\n", "POST / [ | 400", "an HTAB"},
    {CHUNKED_HEAD "3 3\r\nabc\r\n0\r\n\r\n", "POST / [ | 400", "a blank within"},
    {CHUNKED_HEAD "0x3\r\nabc\r\n0\r\n\r\n", "POST / [ | 400", "a mark of hexadecimal numbers"},
    {CHUNKED_HEAD "0X3\r\nabc\r\n0\r\n\r\n", "POST / [ | 400", "in upper case"},
    {CHUNKED_HEAD "+3\r\nabc\r\n0\r\n\r\n", "POST / [ | 400", "a sign"},
    {CHUNKED_HEAD "-3\r\nabc\r\n0\r\n\r\n", "POST / [ | 400", "a negative size"},
    {CHUNKED_HEAD "1_0\r\nabc\r\n0\r\n\r\n", "POST / [ | 400", "an underscore"},
    {CHUNKED_HEAD "3h\r\nabc\r\n0\r\n\r\n", "POST / [ | 400", "a letter that is no digit"},
    {CHUNKED_HEAD "3.0\r\nabc\r\n0\r\n\r\n", "POST / [ | 400", "a fraction"},
    {CHUNKED_HEAD "\r\n3\r\nabc\r\n0\r\n\r\n", "POST / [ | 400", "no size"},
    {CHUNKED_HEAD ";a=b\r\n3\r\nabc\r\n", "POST / [ | 400", "an extension without a size"},
    {Bytes(CHUNKED_HEAD "3\0\r\nabc\r\n0\r\n\r\n"), "POST / [ | 400", "NUL behind a size"},
    {CHUNKED_HEAD "\xC2\xB3\r\nabc\r\n0\r\n\r\n", "POST / [ | 400", "a digit of Unicode"},
    {CHUNKED_HEAD "10000000000000003\r\nabc\r\n0\r\n\r\n", "POST / [ | 413", "3 where 64 bits overflow"},
    {CHUNKED_HEAD "100000003\r\nabc\r\n0\r\n\r\n", "POST / [ | 413", "3 where 32 bits overflow"},
    {CHUNKED_HEAD "FFFFFFFFFFFFFFFF\r\nabc\r\n0\r\n\r\n", "POST / [ | 413", "-1 of 64 bits"},
    {CHUNKED_HEAD "FFFFFFFD\r\nabc\r\n0\r\n\r\n", "POST / [ | 413", "-3 of 32 bits"},
    {CHUNKED_HEAD "000000000000000000003\r\nabc\r\n00\r\n\r\n" NEXT, "POST / [abc] | GET /x",
     "zeros in front are no overflow (RFC 9112 7.1: 1*HEXDIG)"},
    {CHUNKED_HEAD "a\r\n0123456789\r\nA\r\n0123456789\r\n0\r\n\r\n" NEXT, "POST / [01234567890123456789] | GET /x",
     "digits in either case"},
};

inline const Trick kExtensionsAndTrailersTricks[] = {
    {CHUNKED_HEAD "3;a=b;c;d=\"x;\\\"y\"\r\nabc\r\n0;e\r\n\r\n" NEXT, "POST / [abc] | GET /x",
     "extensions are dropped"},
    {CHUNKED_HEAD "3 \t ; \ta  =\t b  ;\tc\r\nabc\r\n0\r\n\r\n" NEXT, "POST / [abc] | GET /x",
     "white space around their marks is to be taken (RFC 9112 7.1.1: BWS)"},
    {CHUNKED_HEAD "3;a=\"\xC3\xA9\t\"\r\nabc\r\n0\r\n\r\n" NEXT, "POST / [abc] | GET /x", "any text may be quoted"},
    {CHUNKED_HEAD "3;a\nabc\r\n0\r\n\r\n", "POST / [ | 400", "an LF alone behind an extension"},
    {CHUNKED_HEAD "3;\n0\r\n\r\n", "POST / [ | 400", "where some look for the CR only"},
    {CHUNKED_HEAD "3;a\rX\nabc\r\n0\r\n\r\n", "POST / [ | 400", "a CR within an extension"},
    {CHUNKED_HEAD "3;a=\"\r\nabc\r\n0\r\n\r\n", "POST / [ | 400", "a line end within quotes"},
    {CHUNKED_HEAD "3;a=\"\n\"\r\nabc\r\n0\r\n\r\n", "POST / [ | 400", "an LF within quotes"},
    {CHUNKED_HEAD "3;a=\"\\\r\n\"\r\nabc\r\n0\r\n\r\n", "POST / [ | 400", "a CR that is escaped"},
    {Bytes(CHUNKED_HEAD "3;a\0\r\nabc\r\n0\r\n\r\n"), "POST / [ | 400", "NUL within an extension"},
    {CHUNKED_HEAD "3;\r\nabc\r\n0\r\n\r\n", "POST / [ | 400", "an extension without a name"},
    {CHUNKED_HEAD "3;=b\r\nabc\r\n0\r\n\r\n", "POST / [ | 400", "a value without a name"},
    {CHUNKED_HEAD "3;a=\r\nabc\r\n0\r\n\r\n", "POST / [ | 400", "a name with a mark and no value"},
    {CHUNKED_HEAD "3;a \r\nabc\r\n0\r\n\r\n", "POST / [ | 400", "a blank at the end"},
    {CHUNKED_HEAD "3;a=b c\r\nabc\r\n0\r\n\r\n", "POST / [ | 400", "two values"},
    {CHUNKED_HEAD "3;a b\r\nabc\r\n0\r\n\r\n", "POST / [ | 400", "two names"},
    {CHUNKED_HEAD "3;a=\"b\"c\r\nabc\r\n0\r\n\r\n", "POST / [ | 400", "something behind the quotes"},
    {CHUNKED_HEAD "3;a=b\"\r\nabc\r\n0\r\n\r\n", "POST / [ | 400", "a quote within a token"},
    {CHUNKED_HEAD "3 a\r\nabc\r\n0\r\n\r\n", "POST / [ | 400", "a name without its mark"},
    {CHUNKED_HEAD "3,\r\nabc\r\n0\r\n\r\n", "POST / [ | 400", "another mark"},
    {CHUNKED_HEAD "0\r\nContent-Length: 9\r\nTransfer-Encoding: chunked\r\nHost: b\r\n\r\n" NEXT, "POST / [] | GET /x",
     "trailer fields mean nothing (RFC 9112 7.1.2)"},
    {CHUNKED_HEAD "0\r\nContent-Length: x\r\n\r\n" NEXT, "POST / [] | GET /x", "whatever they say"},
    {CHUNKED_HEAD "0\r\nX: y\n\r\n", "POST / [ | 400", "an LF alone behind a trailer field"},
    {CHUNKED_HEAD "0\r\nX: y\rZ\r\n\r\n", "POST / [ | 400", "a CR within one"},
    {CHUNKED_HEAD "0\r\nX : y\r\n\r\n", "POST / [ | 400", "a blank before its colon"},
    {CHUNKED_HEAD "0\r\nX: y\r\n z\r\n\r\n", "POST / [ | 400", "a folded one"},
    {CHUNKED_HEAD "0\r\n: y\r\n\r\n", "POST / [ | 400", "one without a name"},
    {Bytes(CHUNKED_HEAD "0\r\nX: \0\r\n\r\n"), "POST / [ | 400", "NUL in a trailer field"},
};

inline const Trick kLinesTricks[] = {
    {"GET / HTTP/1.1\nHost: a\n\n" NEXT, "GET / | GET /x", "an LF alone ends a line (RFC 9112 2.2)"},
    {"GET / HTTP/1.1\r\nHost: a\n\r\n" NEXT, "GET / | GET /x", "both kinds of ends"},
    {"GET / HTTP/1.1\rHost: a\r\r", "...", "a CR alone ends none"},
    {"GET / HTTP/1.1\rHost: a\r\n\r\n", "400", "a CR within the request line"},
    {"GET / HTTP/1.1\r\r\nHost: a\r\n\r\n", "400", "two CR behind it"},
    {"GET / HTTP/1.1\r\nHost: a\r\r\n\r\n", "400", "two CR behind a field"},
    {"GET / HTTP/1.1\r\nHost: a\r\n\r\r\n\r\n", "400", "a CR is no blank line"},
    {"GET / HTTP/1.1\r\nHost: a\r\n\rX: y\r\n\r\n", "400", "a CR before a name"},
    {"GET / HTTP/1.1\r\nHost: a\r\n \r\n\r\n", "400", "a blank is no blank line"},
    {"GET / HTTP/1.1\r\n Host: a\r\n\r\n", "400", "a first field that begins with a blank (RFC 9112 2.2)"},
    {"GET / HTTP/1.1\r\n\tX: y\r\nHost: a\r\n\r\n", "400", "with an HTAB"},
    {"GET / HTTP/1.1\r\nHost: a\r\nX: y\r\n z\r\n\r\n", "400", "a folded field (RFC 9112 5.2)"},
    {"GET / HTTP/1.1\r\nHost: a\r\nX\r\n\r\n", "400", "a field without a colon"},
    {"GET / HTTP/1.1\r\nHost: a\r\n: y\r\n\r\n", "400", "a field without a name"},
    {"GET / HTTP/1.1\r\nHost: a\r\nX : y\r\n\r\n", "400", "a blank before the colon (RFC 9112 5.1)"},
    {"GET / HTTP/1.1\r\nHost: a\r\nX y: z\r\n\r\n", "400", "a blank within a name"},
    {"GET / HTTP/1.1\r\nHost: a\r\nX(y: z\r\n\r\n", "400", "a byte that no name has"},
    {"GET / HTTP/1.1\r\nHost: a\r\nX\xC3\xA9: z\r\n\r\n", "400", "bytes of UTF-8 in a name"},
    {Bytes("GET / HTTP/1.1\r\nHost: a\r\nX\0: z\r\n\r\n"), "400", "NUL in a name"},
    {"GET / HTTP/1.1\r\nHost: a\r\nX: \x7f\r\n\r\n", "400", "DEL in a value"},
    {Bytes("GET / HTTP/1.1\r\nHost: a\r\nX: a long value with a NUL\0in it\r\n\r\n"), "400", "NUL in a value"},
    {"GET / HTTP/1.1\r\nHost: a\r\nX:\ta\tvalue with\tHTAB\t\r\nY:\r\n\r\n", "GET /", "HTAB, and no value at all"},
    {"GET / HTTP/1.1\r\nHost: a\r\nX: \xFF\x80\r\n\r\n", "GET /", "any byte from 0x80 (RFC 9110 5.5)"},
};

inline const Trick kHostsTricks[] = {
    {"GET / HTTP/1.1\r\nHost: a\r\nHost: a\r\n\r\n", "400", "two, though equal (RFC 9112 3.2)"},
    {"GET / HTTP/1.0\r\nHost: a\r\nhost: b\r\n\r\n", "400", "two, of HTTP/1.0"},
    {"GET / HTTP/1.1\r\nHost: a\r\nHost:\r\n\r\n", "400", "an empty one is one"},
    {"GET / HTTP/1.1\r\n\r\n", "400", "none"},
    {"GET http://a/ HTTP/1.1\r\n\r\n", "400", "none, though the target names one"},
    {"GET http://a/ HTTP/1.1\r\nHost: a\r\nHost: b\r\n\r\n", "400", "two beside a target"},
    {"GET http://a/ HTTP/1.1\r\nHost: b/\r\n\r\n", "400", "an invalid one beside a target"},
    {"GET / HTTP/1.0\r\n\r\n", "GET /", "HTTP/1.0 needs none"},
    {"GET / HTTP/1.1\r\nHost:\r\n\r\n", "GET /", "an empty one is valid (RFC 9110 7.2)"},
    {"GET / HTTP/1.1\r\nHost: a/b\r\n\r\n", "400", "a path"},
    {"GET / HTTP/1.1\r\nHost: http://a\r\n\r\n", "400", "a scheme"},
    {"GET / HTTP/1.1\r\nHost: u@a\r\n\r\n", "400", "a user"},
    {"GET / HTTP/1.0\r\nHost: u:p@a\r\n\r\n", "400", "a user and a password, of HTTP/1.0"},
    {"GET / HTTP/1.1\r\nHost: a b\r\n\r\n", "400", "a blank"},
    {"GET / HTTP/1.1\r\nHost: a, b\r\n\r\n", "400", "two in a list"},
    {"GET / HTTP/1.1\r\nHost: a,b\r\n\r\n", "400", "without a blank"},
    {"GET / HTTP/1.1\r\nHost: a?b\r\n\r\n", "400", "a query"},
    {"GET / HTTP/1.1\r\nHost: a#b\r\n\r\n", "400", "a fragment"},
    {"GET / HTTP/1.1\r\nHost: a\\b\r\n\r\n", "400", "a backslash"},
    {"GET / HTTP/1.1\r\nHost: a:b\r\n\r\n", "400", "a port that is none"},
    {"GET / HTTP/1.1\r\nHost: a:1:2\r\n\r\n", "400", "two ports"},
    {"GET / HTTP/1.1\r\nHost: \xC3\xA9\r\n\r\n", "400", "bytes of UTF-8"},
    {"GET / HTTP/1.1\r\nHost: a%2\r\n\r\n", "400", "a percent code that is none"},
    {"GET / HTTP/1.1\r\nHost : a\r\n\r\n", "400", "a blank before the colon"},
    {"GET / HTTP/1.1\r\nHost: a\r\n b\r\n\r\n", "400", "a folded one"},
    {"GET / HTTP/1.1\r\nHost: [::1\r\n\r\n", "400", "an address without its bracket"},
};

inline const Trick kRequestLinesTricks[] = {
    {"get / HTTP/1.1\r\nHost: a\r\n\r\n", "get /", "methods have case: another one"},
    {"GET / http/1.1\r\nHost: a\r\n\r\n", "400", "the name of the protocol has case (RFC 9112 2.3)"},
    {"GET / HTTP/1.10\r\nHost: a\r\n\r\n", "400", "two digits"},
    {"GET / HTTP/01.1\r\nHost: a\r\n\r\n", "400", "two digits in front"},
    {"GET / HTTP/1.\r\nHost: a\r\n\r\n", "400", "no digit"},
    {"GET / HTTP/1\r\nHost: a\r\n\r\n", "400", "no point"},
    {"GET / HTTP/1,1\r\nHost: a\r\n\r\n", "400", "a comma"},
    {"GET / HTTP/1.x\r\nHost: a\r\n\r\n", "400", "a letter"},
    {"GET / HTTP/+1.1\r\nHost: a\r\n\r\n", "400", "a sign"},
    {"GET / HTTPS/1.1\r\nHost: a\r\n\r\n", "400", "another protocol"},
    {"GET / HTTP/1.1x\r\nHost: a\r\n\r\n", "400", "something behind it"},
    {"GET / HTTP/1.1 \r\nHost: a\r\n\r\n", "400", "a blank behind it"},
    {"GET / HTTP/1.2\r\nHost: a\r\n\r\n", "GET /", "a later version of HTTP/1 (RFC 9110 2.5)"},
    {"GET / HTTP/2.0\r\nHost: a\r\n\r\n", "505", "a later major version"},
    {"PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n", "505", "the preface of HTTP/2"},
    {"GET / HTTP/0.9\r\n\r\n", "505", "an earlier major version"},
    {"GET /\r\n\r\n", "400", "no version"},
    {"GET\r\n\r\n", "400", "no target"},
    {"GET HTTP/1.1\r\nHost: a\r\n\r\n", "400", "no target, but a version"},
    {" GET / HTTP/1.1\r\nHost: a\r\n\r\n", "400", "a blank in front"},
    {"GET  / HTTP/1.1\r\nHost: a\r\n\r\n", "400", "two blanks"},
    {"GET /  HTTP/1.1\r\nHost: a\r\n\r\n", "400", "two blanks behind the target"},
    {"GET\t/ HTTP/1.1\r\nHost: a\r\n\r\n", "400", "an HTAB"},
    {"GET /\tHTTP/1.1\r\nHost: a\r\n\r\n", "400", "an HTAB behind the target"},
    {"GET /\x0bHTTP/1.1\r\nHost: a\r\n\r\n", "400", "a VT"},
    {"GET /a b HTTP/1.1\r\nHost: a\r\n\r\n", "400", "a blank in the target"},
    {"GET / HTTP/1.1 GET / HTTP/1.1\r\nHost: a\r\n\r\n", "400", "two in one"},
    {"G(T / HTTP/1.1\r\nHost: a\r\n\r\n", "400", "a method that is no token"},
    {Bytes("GET\0 / HTTP/1.1\r\nHost: a\r\n\r\n"), "400", "NUL in the method"},
    {Bytes("GET /\0 HTTP/1.1\r\nHost: a\r\n\r\n"), "400", "NUL in the target"},
    {"\x16\x03\x01\x02\r\n\r\n", "400", "another protocol's greeting"},
    {"\r\n\r\n" NEXT, "GET /x", "empty lines in front (RFC 9112 2.2)"},
    {"\n\r\n\n\r\n" NEXT, "GET /x", "four of them"},
    {"\r\n\r\n\r\n\r\n\r\n" NEXT, "400", "five"},
    {"\r" NEXT, "400", "a CR is no empty line"},
    {"\r\r\n" NEXT, "400", "nor are two"},
    {"\xEF\xBB\xBF" NEXT, "400", "a mark of UTF-8"},
    {POST_HEAD "Content-Length: 3\r\n\r\nabc\r\n" NEXT, "POST / [abc] | GET /x",
     "an empty line behind a body, as old clients send it"},
};

inline const Trick kTargetsTricks[] = {
    {"GET http://b/x?y HTTP/1.1\r\nHost: a\r\n\r\n", "GET http://b/x?y", "an absolute form"},
    {"GET HTTP://b HTTP/1.1\r\nHost: a\r\n\r\n", "GET HTTP://b", "schemes have no case"},
    {"GET https://b/ HTTP/1.1\r\nHost: a\r\n\r\n", "400", "another scheme"},
    {"GET ftp://b/ HTTP/1.1\r\nHost: a\r\n\r\n", "400", "yet another"},
    {"GET http:///x HTTP/1.1\r\nHost: a\r\n\r\n", "400", "no authority (RFC 9110 4.2.1)"},
    {"GET http://?x HTTP/1.1\r\nHost: a\r\n\r\n", "400", "none before a query"},
    {"GET http://:80/ HTTP/1.1\r\nHost: a\r\n\r\n", "400", "a port and no host"},
    {"GET http://u@b/ HTTP/1.1\r\nHost: b\r\n\r\n", "400", "a user (RFC 9110 4.2.4)"},
    {"GET http://a\\@b/ HTTP/1.1\r\nHost: b\r\n\r\n", "400", "a backslash"},
    {"GET http:/x HTTP/1.1\r\nHost: a\r\n\r\n", "400", "one slash"},
    {"GET x HTTP/1.1\r\nHost: a\r\n\r\n", "400", "no slash"},
    {"GET ?x HTTP/1.1\r\nHost: a\r\n\r\n", "400", "a query alone"},
    {"GET * HTTP/1.1\r\nHost: a\r\n\r\n", "400", "an asterisk is for OPTIONS"},
    {"OPTIONS * HTTP/1.1\r\nHost: a\r\n\r\n", "OPTIONS *", "the server itself"},
    {"OPTIONS ** HTTP/1.1\r\nHost: a\r\n\r\n", "400", "two are no form"},
    {"GET a:80 HTTP/1.1\r\nHost: a\r\n\r\n", "400", "host and port are for CONNECT"},
    {"CONNECT a:80 HTTP/1.1\r\nHost: a\r\n\r\n", "CONNECT a:80", "CONNECT, which is refused by its method"},
    {"CONNECT a HTTP/1.1\r\nHost: a\r\n\r\n", "400", "without a port (RFC 9110 9.3.6)"},
    {"CONNECT a: HTTP/1.1\r\nHost: a\r\n\r\n", "400", "with an empty one"},
    {"CONNECT http://a:80/ HTTP/1.1\r\nHost: a\r\n\r\n", "400", "with an absolute form"},
    {"GET /x#y HTTP/1.1\r\nHost: a\r\n\r\n", "400", "a fragment"},
    {"GET /\xC3\xA9 HTTP/1.1\r\nHost: a\r\n\r\n", "GET /\xC3\xA9", "bytes of UTF-8"},
    {"GET /x\x7f HTTP/1.1\r\nHost: a\r\n\r\n", "400", "DEL"},
    {"GET /a%2Fb HTTP/1.1\r\nHost: a\r\n\r\n" NEXT, "GET /a%2Fb bad path | GET /x",
     "a path that is refused ends nothing: how long the request is, is clear"},
    {"POST /.. HTTP/1.1\r\nHost: a\r\nContent-Length: 3\r\n\r\nabc" NEXT, "POST /.. bad path [abc] | GET /x",
     "nor does it with a body"},
};

#undef POST_HEAD
#undef CHUNKED_HEAD
#undef NEXT

inline std::vector<Trick> AllTricks() {
  std::vector<Trick> all;
  const auto add = [&](const auto& tricks) { all.insert(all.end(), std::begin(tricks), std::end(tricks)); };
  add(kLengthBesideCodingTricks);
  add(kCodingsTricks);
  add(kLengthsTricks);
  add(kChunksTricks);
  add(kExtensionsAndTrailersTricks);
  add(kLinesTricks);
  add(kHostsTricks);
  add(kRequestLinesTricks);
  add(kTargetsTricks);
  return all;
}

}  // namespace TesselServer::Modern

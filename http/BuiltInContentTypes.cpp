#include "http/ContentTypes.h"

namespace TesselServer {
namespace {

// kept: the table as it has always been, with its empty slots, its entries without a comma (which match nothing) and
// its repeated extensions (of which the first counts). The number before each row is its first slot.
constexpr std::array<std::string_view, kBuiltInContentTypeSlots> kBuiltInContentTypes = {
    // clang-format off
    /*   0 */ "", "text,text/plain", "txt,text/plain", "html,text/html",
    /*   4 */ "htm,text/html", "csv,csv/tab-separated-values", "asc,text/plain", "asp,text/asp",
    /*   8 */ "css,text/css", "rt,text/vnd.rn-realtext", "scp,text/plain", "sct,text/scriptlet",
    /*  12 */ "stm,text/plain", "wsc,text/scriptlet", "wtx,text/plain", "xml,text/xml",
    /*  16 */ "xsl,text/xml", "", "", "",
    /*  20 */ "jpg,image/jpeg", "jpeg,image/jpeg", "tif,image/tiff", "tiff,image/tiff",
    /*  24 */ "cgm,image/cgm", "dwg,image/vnd.dwg", "dxf,image/vnd.dxf", "bmp,image/bmp",
    /*  28 */ "bmp,image/bitmap", "bmp,image/x-xbitmap", "gif,image/gif", "dib,image/gif",
    /*  32 */ "", "png,image/x-png", "art,image/xjg", "art,image/x-jg",
    /*  36 */ "emf,image/x-emf", "wmf,image/x-wmf", "mac,image/x-macpaint", "cam,image/bitmap",
    /*  40 */ "pct,image/pict", "pic,image/pict", "pcx,image/bitmap", "qti,image/x-quicktime",
    /*  44 */ "qtif,image/x-quicktime", "rf,image/vnd.rn-realflash", "rp,image/vnd.rn-realpix", "sun,image/bmp",
    /*  48 */ "tga,image/bmp", "", "aiff,audio/x-aiff", "aif,audio/x-aiff",
    /*  52 */ "au,audio/basic", "wave,audio/wav", "wav,audio/wav", "mp3,audio/x-mpeg",
    /*  56 */ "mp2,audio/x-mpeg", "mpa,audio/x-mpeg", "mpega,audio/x-mpeg2", "mid,audio/mid",
    /*  60 */ "ra,audio/x-pn-realaudio", "ram,audio/x-pn-realaudio",
              "rmi,audio/mid", "rpm,audio/x-pn-realaudio-plugin",
    /*  64 */ "sd2,audio/x-sd2", "snd,audio/basic", "wax,audio/x-ms-wax", "rmm,audio/x-pn-realaudio",
    /*  68 */ "", "", "avi,video/avi", "mpa,video/mpeg",
    /*  72 */ "mpe,video/mpeg", "mpeg,video/mpeg", "", "mp2v,video/mpeg",
    /*  76 */ "mov,video/quicktime", "video/vnd.vivo", "movie,video/x-sgi-movie", "qt,video/quicktime",
    /*  80 */ "rv,video/vnd.rn-realvideo", "vdo,video/vdo", "wm,video/x-ms-wm", "wma,video/x-ms-wm",
    /*  84 */ "wmv,video/x-ms-wmv", "wvx,video/x-ms-wvx", "", "",
    /*  88 */ "", "", "eml,message/rfc822", "mhtmessage/rfc822",
    /*  92 */ "mhtml,message/rfc822", "message/rfc822", "", "",
    /*  96 */ "", "", "", "",
    /* 100 */ "model/iges", "vrml,model/vrml", "model/mesh", "model/vnd.dwf",
    /* 104 */ "model/vnd.gtw", "model/vnd.flatland.3dml", "", "",
    /* 108 */ "", "", "doc,application/msword", "dot,application/msword",
    /* 112 */ "xls,application/msexcel", "xlc,application/xlc", "hta,application/hta", "mdb,application/msaccess",
    /* 116 */ "ppt,application/x-mspowerpoint", "pdf,application/pdf",
              "tgz,application/x-compressed", "zip,application/x-zip-compressed",
    /* 120 */ "gz,application/x-gzip-compressed", "class,application/x-java",
              "js,application/x-javascript", "ipx,application/x-ipix",
    /* 124 */ "cer,application/x-x509-ca-cert", "crt,application/x-x509-ca-cert",
              "der,application/x-x509-ca-cert", "dll,application/mime",
    /* 128 */ "eps,application/postscript", "exe,application/mime",
              "fdf,application/vnd.fdf", "fif,application/fractals",
    /* 132 */ "hqx,application/mac-binhex40", "hta,application/hta",
              "iii,application/x-iphone", "ips,application/x-ipscript",
    /* 136 */ "latex,application/x-latex", "ls,application/x-javascript",
              "mocha,application/x-javascript", "pdf,application/pdf",
    /* 140 */ "pl,application/x-perl", "pot,application/vnd.ms-powerpoint",
              "ppa,application/vnd.ms-powerpoint", "pps,application/vnd.ms-powerpoint",
    /* 144 */ "ps,application/postscript", "rm,application/vnd.rn-realmedia",
              "rmj,application/vnd.rn-rn-taiko-real-rmj", "",
    /* 148 */ "rmp,application/vnd.rn-rn_music_package", "rmx,application/vnd.rn-rn-taiko-real-rmx",
              "rnx,application/vnd.rn-realplayer", "rtf,application/msword",
    /* 152 */ "sit,application/x-stuffit", "smil,application/smil",
              "ssm,application/streamingmedia", "tar,application/x-tar",
    /* 156 */ "xpl,application/x-xplug", "xwz,application/x-xwiz", "", "",
    /* 160 */ "", "", "", "",
    /* 164 */ "", "", "", "",
    /* 168 */ "", "", "java,application/java", "java,java/*",
    /* 172 */ "", "", "", "",
    // clang-format on
};

}  // namespace

std::span<const std::string_view, kBuiltInContentTypeSlots> BuiltInContentTypes() { return kBuiltInContentTypes; }

}  // namespace TesselServer

set(SOURCES
  BuiltInContentTypes.cpp
  ContentTypes.cpp
  ErrorPages.cpp
  Page.cpp
  PageProcessor.cpp
  ResponseHeader.cpp
  ServerVariables.cpp
  cls_CGI.cpp
  cls_ErrorFiles.cpp
  cls_HTTP.cpp)
set(PUBLIC_HEADERS Enumerations.h)

#include "control/modern/ModernInput.h"

#include <utility>

#include "http/modern/BasicCredentials.h"
#include "platform/loop/LongMemory.h"

namespace TesselServer {

namespace {

constexpr const char* kAuthType = "Basic";

}  // namespace

void ModernInput::Reset(std::int64_t maxBodyBytes) {
  limits_.bodyBytes = maxBodyBytes;
  place_.Leave();
  BeginNext();
}

void ModernInput::LetGoOfBody() {
  GiveBack(body_);
  if (fields_) GiveBack(fields_->RequestBody);
}

void ModernInput::BeginNext() {
  reader_.Begin(limits_);
  request_.Reset();
  LetGoOfBody();
  fields_.reset();
  refusal_.reset();
  keepsOpen = keepsBody = isInterim = isWhole_ = isAuthenticated_ = false;
  sentBytes = 0;
}

void ModernInput::Authenticated(bool value) {
  isAuthenticated_ = value;
  if (fields_) fields_->AuthType = value ? kAuthType : "";
}

void ModernInput::EndRequest() {
  isWhole_ = true;
  if (fields_) FillBody();
}

RequestFields& ModernInput::Made() {
  if (!fields_) {
    auto fields = std::make_unique<RequestFields>();
    Fill(*fields);
    fields_ = std::move(fields);
    if (isWhole_) FillBody();
  }
  return *fields_;
}

void ModernInput::Fill(RequestFields& fields) const {
  fields.RequestLine = request_.Line();
  fields.DocumentURI = request_.Path();
  fields.RequestPath = request_.Path().substr(request_.Path().size() > 1 ? 1 : 0);
  fields.RequestQuery = request_.Query();
  fields.RequestMethod = request_.Method();
  fields.RequestHeader = request_.Head();
  fields.RequestAccept = request_.Field("Accept");
  fields.RequestReferer = request_.Field("Referer");
  fields.RequestUserAgent = request_.Field("User-Agent");
  fields.RequestContentType = request_.Field("Content-Type");
  auto credentials = Modern::ReadBasicCredentials(request_.Field("Authorization"));
  fields.AuthUser = std::move(credentials.user);
  fields.AuthPassword = std::move(credentials.password);
  fields.AuthType = isAuthenticated_ ? kAuthType : "";
}

void ModernInput::FillBody() {
  if (!request_.HasBody()) return;
  fields_->ContentLengthText = std::to_string(reader_.BodyReceived());
  fields_->RequestBody = std::move(body_);
  body_.clear();
}

}  // namespace TesselServer

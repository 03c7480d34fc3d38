// HttpClient on the shared NSURLSession. Completions run on the session's delegate queue
// (a background queue); callers hop to the main queue themselves.
#import <Foundation/Foundation.h>

#include "phone/http_client.h"

namespace duskwell {
namespace {

NSString* toNS(const std::string& s) { return [[NSString alloc] initWithBytes:s.data() length:s.size() encoding:NSUTF8StringEncoding]; }

class SessionHttpClient final : public HttpClient {
public:
    void send(HttpRequest request, std::function<void(HttpResponse)> completion) override {
        NSString* text = toNS(request.url);
        NSURL* url = text != nil ? [NSURL URLWithString:text] : nil;
        if (url == nil) {
            completion(HttpResponse{std::nullopt, {}, std::string("unsupported URL")});
            return;
        }
        NSMutableURLRequest* r = [NSMutableURLRequest requestWithURL:url
                                                         cachePolicy:NSURLRequestUseProtocolCachePolicy
                                                     timeoutInterval:request.timeoutSeconds];
        r.HTTPMethod = toNS(request.method);
        if (request.body) r.HTTPBody = [NSData dataWithBytes:request.body->data() length:request.body->size()];
        for (const auto& [name, value] : request.headers) [r setValue:toNS(value) forHTTPHeaderField:toNS(name)];

        // The block owns the completion; NSURLSession keeps the task alive until it ends.
        auto done = std::make_shared<std::function<void(HttpResponse)>>(std::move(completion));
        NSURLSessionDataTask* task = [NSURLSession.sharedSession
            dataTaskWithRequest:r
              completionHandler:^(NSData* data, NSURLResponse* response, NSError* error) {
                HttpResponse out;
                if (error != nil) {
                    const char* reason = error.localizedDescription.UTF8String;
                    out.error = std::string(reason != nullptr ? reason : "");
                } else {
                    if ([response isKindOfClass:[NSHTTPURLResponse class]]) {
                        out.status = static_cast<int>(((NSHTTPURLResponse*)response).statusCode);
                    }
                    if (data != nil) out.body.assign(static_cast<const char*>(data.bytes), data.length);
                }
                (*done)(std::move(out));
              }];
        [task resume];
    }
};

}  // namespace

std::unique_ptr<HttpClient> makePlatformHttpClient() { return std::make_unique<SessionHttpClient>(); }

}  // namespace duskwell

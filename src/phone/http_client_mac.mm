// HttpClient on the shared NSURLSession. Completions run on the session's delegate queue
// (a background queue); callers hop to the main queue themselves.
#import <Foundation/Foundation.h>

#include <exception>
#include <memory>

#include "phone/http_client.h"

namespace duskwell {
namespace {

NSString* toNS(const std::string& s) {
    return [[NSString alloc] initWithBytes:s.data() length:s.size() encoding:NSUTF8StringEncoding];
}

using Completion = std::function<void(HttpResponse)>;

// Runs the completion from a system queue; nothing it throws may unwind into Foundation.
void deliver(const std::shared_ptr<Completion>& done, HttpResponse response) {
    try {
        (*done)(std::move(response));
    } catch (const std::exception& e) {
        NSLog(@"Duskwell: HTTP completion failed: %s", e.what());
    } catch (...) {
        NSLog(@"Duskwell: HTTP completion failed");
    }
}

class SessionHttpClient final : public HttpClient {
public:
    void send(HttpRequest request, std::function<void(HttpResponse)> completion) override {
        if (!completion) return;
        // The blocks own the completion; NSURLSession keeps its task alive until it ends.
        auto done = std::make_shared<Completion>(std::move(completion));

        NSString* text = toNS(request.url);
        NSURL* url = text != nil ? [NSURL URLWithString:text] : nil;
        if (url == nil) {
            // Later, like every other answer: callers may still be inside their own send.
            dispatch_async(dispatch_get_global_queue(QOS_CLASS_UTILITY, 0), ^{
              deliver(done, HttpResponse{std::nullopt, {}, std::string("unsupported URL")});
            });
            return;
        }
        NSMutableURLRequest* r = [NSMutableURLRequest requestWithURL:url
                                                         cachePolicy:NSURLRequestUseProtocolCachePolicy
                                                     timeoutInterval:request.timeoutSeconds];
        NSString* method = toNS(request.method);
        if (method != nil) r.HTTPMethod = method;
        if (request.body) r.HTTPBody = [NSData dataWithBytes:request.body->data() length:request.body->size()];
        for (const auto& [name, value] : request.headers) {
            NSString* field = toNS(name);
            NSString* content = toNS(value);
            if (field != nil && content != nil) [r setValue:content forHTTPHeaderField:field];
        }

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
                deliver(done, std::move(out));
              }];
        [task resume];
    }
};

}  // namespace

std::unique_ptr<HttpClient> makePlatformHttpClient() { return std::make_unique<SessionHttpClient>(); }

}  // namespace duskwell

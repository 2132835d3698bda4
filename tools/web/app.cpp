#include "app.h"

#include <chrono>
#include <random>

#include "assets.h"

namespace web
{
namespace
{

constexpr std::chrono::milliseconds look_often{200}; /* while somebody looks */
constexpr std::chrono::milliseconds look_seldom{1000};
constexpr std::chrono::seconds keep_alive{15};

/* Nothing from elsewhere, nothing inline, in nobody's frame. */
constexpr std::pair<const char *, const char *> security_headers[] = {
    {"Content-Security-Policy", "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; "
                                "connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
    {"X-Content-Type-Options", "nosniff"},
    {"X-Frame-Options", "DENY"},
    {"Referrer-Policy", "no-referrer"},
    {"Cross-Origin-Opener-Policy", "same-origin"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
};

std::string random_instance()
{
    std::random_device source; /* need not be secret, only different */
    char text[9];
    std::snprintf(text, sizeof text, "%08x", static_cast<unsigned>(source()));
    return text;
}

void finish_headers(response &out)
{
    for (const auto &[name, value] : security_headers)
        out.headers.emplace_back(name, value);
    for (const auto &[name, value] : out.headers)
        if (name == "Cache-Control")
            return;
    out.headers.emplace_back("Cache-Control", "no-store");
}

} // namespace

const app::route app::routes[] = {
    {"GET", "/healthz", false, &app::get_health},        {"GET", "/metrics", true, &app::get_metrics},
    {"GET", "/api/state", true, &app::get_state},        {"GET", "/api/events", true, &app::get_events},
    {"GET", "/api/messages/", true, &app::get_messages}, {"GET", "/api/requests/", true, &app::get_request},
    {"GET", "/api/handset", true, &app::get_handset},    {"GET", "/api/traffic", true, &app::get_traffic},
    {"POST", "/api/session", false, &app::post_session}, {"POST", "/api/session/end", true, &app::post_session_end},
    {"POST", "/api/messages", true, &app::post_message}, {"POST", "/api/drafts", true, &app::post_draft},
    {"POST", "/api/read", true, &app::post_read},        {"POST", "/api/delete", true, &app::post_delete},
    {"POST", "/api/handset", true, &app::post_handset},  {"POST", "/api/modem", true, &app::post_trouble},
    {"POST", "/api/inspect", true, &app::post_inspect},
};

app::app(app_options options)
    : options_(std::move(options)), instance_(random_instance()), guard_(options_.rules), store_(options_.store),
      router_(store_.now()), handset_(options_.handset_control, options_.handset_number), traffic_(options_.trace),
      events_([this] { wake(); }), jobs_(std::make_unique<job_table>([this](const json &) { wake(); }))
{
    const endpoint where = parse_endpoint(options_.listen, options_.port);
    store_.poll();
    traffic_.poll();
    auto server = std::make_unique<http_server>(where, [this](const request &asked) { return answer(asked); });
    url_ = "http://" + where.text + ':' + std::to_string(server->port()) + '/';
    {
        const std::lock_guard hold(server_lock_);
        server_ = std::move(server);
    }
    watcher_ = std::thread([this] { watch(); });
    if (handset_.there())
        handset_watcher_ = std::thread([this] { watch_handset(); });
}

app::~app()
{
    {
        const std::lock_guard hold(lock_);
        stopping_ = true;
    }
    ended_.notify_all();
    watcher_.join();
    if (handset_watcher_.joinable())
        handset_watcher_.join();
    std::unique_ptr<http_server> last;
    {
        const std::lock_guard hold(server_lock_);
        last = std::move(server_);
    }
    last.reset(); /* its answers look at the jobs */
    jobs_.reset();
}

void app::wake()
{
    const std::lock_guard hold(server_lock_);
    if (server_)
        server_->wake();
}

/* ---- answering ---- */

outcome app::dispatch(const request &asked)
{
    if (std::optional<response> stranger = guard_.refuse_host(asked))
        return *stranger;
    bool path_known = false;
    for (const route &each : routes) {
        const std::string_view path = each.path;
        if (path.ends_with('/') ? !asked.path.starts_with(path) : asked.path != path)
            continue;
        path_known = true;
        if (asked.method != each.method)
            continue;
        if (each.guarded)
            if (std::optional<response> stranger = guard_.refuse(asked))
                return *stranger;
        try {
            return (this->*each.act)(asked);
        } catch (const bad_request &reason) {
            return refusal(400, "wrong", reason.what());
        }
    }
    if (path_known || asked.method != "GET")
        return refusal(405, "method", "This cannot be done here.");
    return serve_asset(asked, options_.assets_folder);
}

outcome app::answer(const request &asked)
{
    outcome out = dispatch(asked);
    if (auto *now = std::get_if<response>(&out)) {
        finish_headers(*now);
    } else if (auto *without_end = std::get_if<endless>(&out)) {
        finish_headers(without_end->head);
    } else {
        out = later([wait = std::get<later>(out)]() {
            std::optional<response> ready = wait();
            if (ready)
                finish_headers(*ready);
            return ready;
        });
    }
    return out;
}

/* ---- watching ---- */

/* False: it is time to end. */
bool app::pause()
{
    std::unique_lock hold(lock_);
    ended_.wait_for(hold, events_.listeners() > 0 ? look_often : look_seldom, [this] { return stopping_; });
    return !stopping_;
}

/* The state as it is. Whoever asks between two looks of the watcher may see what passes before the next one, so all
 * hear of it: a page that showed it would else never learn that it passed. `turn` tells which of two is the newer. */
json app::tell_state()
{
    const std::lock_guard hold(told_lock_);
    json now = state();
    const bool news = now != told_;
    if (news) {
        told_ = now;
        told_turn_++;
    }
    now["turn"] = told_turn_;
    if (news)
        events_.publish("state", now);
    return now;
}

void app::watch()
{
    auto spoken = std::chrono::steady_clock::now();
    do {
        store_.poll();
        const json lines = traffic_.poll();
        if (!lines.empty())
            events_.publish("traffic", {{"lines", lines}});
        tell_state();
        if (std::chrono::steady_clock::now() - spoken > keep_alive) {
            events_.keep_alive();
            spoken = std::chrono::steady_clock::now();
        }
        wake(); /* answers whose time is up */
    } while (pause());
}

void app::watch_handset()
{
    uint64_t told = 0;
    do {
        handset_.poll();
        const uint64_t now = handset_.revision(); /* what was sent from here counts as well */
        if (now != told)
            events_.publish("handset", {{"revision", now}});
        told = now;
    } while (pause());
}

} // namespace web

// SPDX-License-Identifier: Apache-2.0
// What the page asks for, and the answers.
#include "view/site.h"

#include "feature_json.h"
#include "view/analysis.h"
#include "view/examination.h"
#include "view/gate.h"
#include "view/page_files.h"

#include <algorithm>
#include <fmt/format.h>
#include <thread>

namespace nq::tool::view
{

namespace
{

using Json = nlohmann::ordered_json;

constexpr const char* kJsonType = "application/json";
constexpr size_t kMostSide = 1'000'000;

/// A request that asks for nothing there is.
class BadRequest : public std::runtime_error
{
  public:
    using std::runtime_error::runtime_error;
};

std::string Dumped(const Json& json)
{
    return json.dump(-1, ' ', true, Json::error_handler_t::replace);
}

void Reply(HttpConnection& connection, const Json& json, int status = 200)
{
    connection.Answer(status, kJsonType, Dumped(json));
}

size_t NumberOf(const HttpRequest& request, const std::string& name, size_t most)
{
    const std::optional<size_t> number = request.Number(name, most);
    if (!number)
    {
        throw BadRequest(name + " is missing, or no number that it takes");
    }
    return *number;
}

Spot SpotOf(const HttpRequest& request, const std::string& x, const std::string& y)
{
    return {NumberOf(request, x, kMostSide), NumberOf(request, y, kMostSide)};
}

/// A text of the body, which is a JSON object.
std::string TextIn(const HttpRequest& request, const char* name)
{
    const Json body = Json::parse(request.body, nullptr, false);
    if (!body.is_object() || !body.contains(name) || !body[name].is_string())
    {
        throw BadRequest(std::string("the body has no text ") + name);
    }
    return body[name];
}

/// The doctor is a process of its own, for which a camera of this page is one that somebody controls.
void TakeAsOwn(Json& examination, const std::string& address)
{
    for (Json& finding : examination["findings"])
    {
        const std::string subject = finding["subject"];
        if (finding["id"] == "camera.owner" && finding["verdict"] == "wrong" && !address.empty() &&
            subject.ends_with(" at " + address))
        {
            finding.update({{"verdict", "right"}, {"text", "this page has it"}, {"mend", nullptr}});
            examination["wrong"] = examination["wrong"].get<size_t>() - 1;
            examination["right"] = examination["right"].get<size_t>() + 1;
        }
    }
}

} // namespace

struct Site::Route
{
    const char* method;
    const char* name;
    void (Site::*answer)(const HttpRequest&, HttpConnection&);
};

const Site::Route* Site::FindRoute(const std::string& method, const std::string& name)
{
    static constexpr Route kRoutes[] = {
        {"GET", "numbers", &Site::Numbers},     {"GET", "pictures", &Site::Pictures},
        {"GET", "pixels", &Site::Pixels},       {"GET", "histogram", &Site::Histogram},
        {"GET", "line", &Site::Line},           {"GET", "features", &Site::FeatureList},
        {"POST", "feature", &Site::SetFeature}, {"POST", "execute", &Site::Execute},
        {"POST", "pause", &Site::Pause},        {"POST", "record", &Site::Record},
        {"POST", "doctor", &Site::Doctor},
    };
    const auto* const found = std::find_if(std::begin(kRoutes), std::end(kRoutes), [&](const Route& route) {
        return route.method == method && route.name == name;
    });
    return found == std::end(kRoutes) ? nullptr : found;
}

void Site::Answer(const HttpRequest& request, HttpConnection& connection)
{
    const Admission admission = Admit(request, m_token);
    if (admission.refusal != 0)
    {
        connection.Answer(admission.refusal, "text/plain; charset=utf-8",
                          admission.refusal == 404 ? "there is nothing here\n" : "not from there\n");
        return;
    }
    const PageFile* const file = FindPageFile(admission.name.empty() ? "index.html" : admission.name);
    if (file != nullptr && request.method == "GET")
    {
        connection.Answer(200, TypeOf(file->name), file->bytes);
        return;
    }
    const Route* const route = FindRoute(request.method, admission.name);
    if (route == nullptr)
    {
        connection.Answer(404, "text/plain; charset=utf-8", "there is nothing here\n");
        return;
    }
    try
    {
        (this->*route->answer)(request, connection);
    }
    catch (const BadRequest& wrong)
    {
        Reply(connection, {{"error", wrong.what()}, {"code", static_cast<int>(ExitCode::Usage)}}, 400);
    }
    catch (const ToolFailure& failure)
    {
        Reply(connection, {{"error", failure.what()}, {"code", static_cast<int>(failure.Code())}}, 409);
    }
}

ViewedCamera& Site::CameraOf(const HttpRequest& request)
{
    return *m_cameras[NumberOf(request, "camera", m_cameras.size() - 1)];
}

std::shared_ptr<const ShownPicture> Site::PictureOf(const HttpRequest& request)
{
    std::shared_ptr<const ShownPicture> picture = CameraOf(request).Picture().Newest();
    if (!picture || !picture->problem.empty())
    {
        throw ToolFailure(ExitCode::Failure, picture ? picture->problem : "there is no picture yet");
    }
    return picture;
}

/// Server-sent events, four a second: state and numbers of every camera, with the windows that this page has not yet.
void Site::Numbers(const HttpRequest& /*request*/, HttpConnection& connection)
{
    constexpr std::chrono::milliseconds kInterval{250};
    std::vector<uint64_t> seen(m_cameras.size());
    bool going = connection.Begin("text/event-stream");
    while (going && Goes(connection))
    {
        Json all = Json::array();
        for (size_t at = 0; at < m_cameras.size(); ++at)
        {
            all.push_back(m_cameras[at]->Json(seen[at]));
            const Json& windows = all.back()["numbers"]["windows"];
            seen[at] = windows.empty() ? seen[at] : windows.back()["number"].get<uint64_t>();
        }
        going = connection.Send("data: " + Dumped({{"cameras", std::move(all)}}) + "\n\n");
        std::this_thread::sleep_for(kInterval);
    }
}

/// Multipart pictures of every camera in one answer, for a browser opens but six connections to one server.
void Site::Pictures(const HttpRequest& /*request*/, HttpConnection& connection)
{
    std::vector<uint64_t> seen(m_cameras.size());
    uint64_t heard = 0;
    bool going = connection.Begin("multipart/x-mixed-replace; boundary=picture");
    while (going && Goes(connection))
    {
        heard = m_bell.Wait(heard);
        for (size_t at = 0; at < m_cameras.size() && going; ++at)
        {
            const std::shared_ptr<const ShownPicture> picture = m_cameras[at]->Picture().NewerThan(seen[at]);
            if (picture)
            {
                seen[at] = picture->number;
                const Json about = {{"camera", at}, {"frame_id", picture->frameId}, {"problem", picture->problem}};
                going = connection.Send(fmt::format(
                            "--picture\r\nContent-Type: image/jpeg\r\nContent-Length: {}\r\nX-Picture: {}\r\n\r\n",
                            picture->jpeg.size(), Dumped(about))) &&
                        connection.Send(picture->jpeg) && connection.Send("\r\n");
            }
        }
    }
}

void Site::Pixels(const HttpRequest& request, HttpConnection& connection)
{
    const Spot corner = SpotOf(request, "x", "y");
    const size_t width = NumberOf(request, "width", kMostSide);
    const size_t height = NumberOf(request, "height", kMostSide);
    Reply(connection, PixelsJson(*PictureOf(request), corner, width, height));
}

void Site::Histogram(const HttpRequest& request, HttpConnection& connection)
{
    Reply(connection, HistogramJson(*PictureOf(request)));
}

void Site::Line(const HttpRequest& request, HttpConnection& connection)
{
    const Spot from = SpotOf(request, "x0", "y0");
    const Spot to = SpotOf(request, "x1", "y1");
    Reply(connection, LineJson(*PictureOf(request), from, to));
}

/// One by one, so that no other thread waits for the whole list.
void Site::FeatureList(const HttpRequest& request, HttpConnection& connection)
{
    ViewedCamera& camera = CameraOf(request);
    std::vector<std::string> names;
    camera.WithFeatures([&](Features& features) { names = features.Names(); });
    Json all = Json::array();
    for (const std::string& name : names)
    {
        camera.WithFeatures([&](Features& features) { all.push_back(ToJson(features.Read(name))); });
    }
    Reply(connection, {{"features", std::move(all)}});
}

/// Answers with the feature as it is then, and with those that it selects.
void Site::SetFeature(const HttpRequest& request, HttpConnection& connection)
{
    const Setting setting{TextIn(request, "name"), TextIn(request, "value")};
    Json now;
    CameraOf(request).WithFeatures([&](Features& features) {
        features.Set(setting);
        now = ToJson(features.Read(setting.name));
    });
    Reply(connection, now);
}

void Site::Execute(const HttpRequest& request, HttpConnection& connection)
{
    const std::string name = TextIn(request, "name");
    CameraOf(request).WithFeatures([&](Features& features) { features.Execute(name); });
    Reply(connection, Json::object());
}

void Site::Pause(const HttpRequest& request, HttpConnection& connection)
{
    CameraOf(request).SetPaused(NumberOf(request, "on", 1) == 1);
    Reply(connection, Json::object());
}

void Site::Record(const HttpRequest& request, HttpConnection& connection)
{
    Recorder& recorder = CameraOf(request).Recording();
    NumberOf(request, "on", 1) == 1 ? recorder.Begin() : recorder.End();
    Reply(connection, recorder.Json());
}

void Site::Doctor(const HttpRequest& /*request*/, HttpConnection& connection)
{
    Json examination = ExaminationJson(m_common);
    for (const auto& camera : m_cameras)
    {
        if (camera->HasControl())
        {
            TakeAsOwn(examination, camera->Address());
        }
    }
    Reply(connection, examination);
}

} // namespace nq::tool::view

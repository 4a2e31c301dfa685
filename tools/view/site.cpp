// SPDX-License-Identifier: Apache-2.0
// What the page asks for, and the answers.
#include "view/site.h"

#include "feature_json.h"
#include "view/analysis.h"
#include "view/examination.h"
#include "view/gate.h"
#include "view/page_files.h"

#include <algorithm>
#include <charconv>
#include <fmt/format.h>
#include <thread>

namespace nq::tool::view
{

namespace
{

using Json = nlohmann::ordered_json;
using httplib::Request;
using httplib::Response;

constexpr size_t kMostSide = 1'000'000;

/// A request that asks for nothing there is.
class BadRequest : public std::runtime_error
{
  public:
    using std::runtime_error::runtime_error;
};

/// A feature for JavaScript, which rounds whole numbers that take more than 53 bits: those are texts.
Json ForPage(const Reading& reading)
{
    constexpr int64_t kMostExact = int64_t{1} << 53;
    Json feature = ToJson(reading);
    for (const char* const name : {"value", "min", "max", "step"})
    {
        Json& number = feature[name];
        if (number.is_number_integer() && (number > kMostExact || number < -kMostExact))
        {
            number = number.dump();
        }
    }
    return feature;
}

std::string Dumped(const Json& json)
{
    return json.dump(-1, ' ', true, Json::error_handler_t::replace);
}

void Reply(Response& response, const Json& json, int status = 200)
{
    response.status = status;
    response.set_content(Dumped(json), "application/json");
}

void Refuse(Response& response, int status, const char* text)
{
    response.status = status;
    response.set_content(text, "text/plain; charset=utf-8");
}

bool Send(httplib::DataSink& sink, const std::string& bytes)
{
    return sink.write(bytes.data(), bytes.size());
}

size_t NumberOf(const Request& request, const std::string& name, size_t most)
{
    const std::string text = request.get_param_value(name);
    size_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || number > most)
    {
        throw BadRequest(name + " is missing, or no number that it takes");
    }
    return number;
}

Spot SpotOf(const Request& request, const std::string& x, const std::string& y)
{
    return {NumberOf(request, x, kMostSide), NumberOf(request, y, kMostSide)};
}

/// A text of the body, which is a JSON object.
std::string TextIn(const Request& request, const char* name)
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
    void (Site::*answer)(const Request&, Response&);
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

bool Site::Answer(const Request& request, Response& response)
{
    const Admission admission = Admit(request, m_token);
    const PageFile* const file = FindPageFile(admission.name.empty() ? "index.html" : admission.name);
    const Route* const route = FindRoute(request.method, admission.name);
    if (admission.refusal == 403)
    {
        Refuse(response, 403, "not from there\n");
    }
    else if (admission.refusal == 0 && file != nullptr && request.method == "GET")
    {
        response.set_content(file->bytes.data(), file->bytes.size(), TypeOf(file->name));
    }
    else if (admission.refusal != 0 || route == nullptr)
    {
        Refuse(response, 404, "there is nothing here\n");
    }
    else if (request.method == "POST")
    {
        return false;
    }
    else
    {
        Follow(*route, request, response);
    }
    return true;
}

void Site::AnswerWithBody(const Request& request, Response& response)
{
    const Route* const route = FindRoute(request.method, Admit(request, m_token).name);
    if (route != nullptr)
    {
        Follow(*route, request, response);
    }
}

void Site::Follow(const Route& route, const Request& request, Response& response)
{
    try
    {
        (this->*route.answer)(request, response);
    }
    catch (const BadRequest& wrong)
    {
        Reply(response, {{"error", wrong.what()}, {"code", static_cast<int>(ExitCode::Usage)}}, 400);
    }
    catch (const ToolFailure& failure)
    {
        Reply(response, {{"error", failure.what()}, {"code", static_cast<int>(failure.Code())}}, 409);
    }
}

ViewedCamera& Site::CameraOf(const Request& request)
{
    return *m_cameras[NumberOf(request, "camera", m_cameras.size() - 1)];
}

std::shared_ptr<const ShownPicture> Site::PictureOf(const Request& request)
{
    std::shared_ptr<const ShownPicture> picture = CameraOf(request).Picture().Newest();
    if (!picture || picture->samples.bytes.empty())
    {
        throw ToolFailure(ExitCode::Failure, picture ? picture->problem : "there is no picture yet");
    }
    return picture;
}

/// Server-sent events, four a second: state and numbers of every camera, with the windows that this page has not yet.
void Site::Numbers(const Request& /*request*/, Response& response)
{
    const auto tell = [this, seen = std::vector<uint64_t>(m_cameras.size())](size_t, httplib::DataSink& sink) mutable {
        constexpr std::chrono::milliseconds kInterval{250};
        Json all = Json::array();
        for (size_t at = 0; at < m_cameras.size(); ++at)
        {
            all.push_back(m_cameras[at]->Json(seen[at]));
            const Json& windows = all.back()["numbers"]["windows"];
            seen[at] = windows.empty() ? seen[at] : windows.back()["number"].get<uint64_t>();
        }
        const bool taken = Send(sink, "data: " + Dumped({{"cameras", std::move(all)}}) + "\n\n");
        std::this_thread::sleep_for(kInterval);
        return taken && sink.is_writable();
    };
    response.set_content_provider("text/event-stream", tell);
}

/// Multipart pictures of every camera in one answer, for a browser opens but six connections to one server.
void Site::Pictures(const Request& /*request*/, Response& response)
{
    const auto show = [this, seen = std::vector<uint64_t>(m_cameras.size()),
                       heard = uint64_t{0}](size_t, httplib::DataSink& sink) mutable {
        heard = m_bell.Wait(heard);
        bool taken = sink.is_writable();
        for (size_t at = 0; at < m_cameras.size() && taken; ++at)
        {
            const std::shared_ptr<const ShownPicture> picture = m_cameras[at]->Picture().NewerThan(seen[at]);
            if (picture)
            {
                seen[at] = picture->number;
                const Json about = {{"camera", at}, {"frame_id", picture->frameId}, {"problem", picture->problem}};
                taken = Send(sink, fmt::format("--picture\r\nContent-Type: image/jpeg\r\nContent-Length: "
                                               "{}\r\nX-Picture: {}\r\n\r\n",
                                               picture->jpeg.size(), Dumped(about))) &&
                        Send(sink, picture->jpeg) && Send(sink, "\r\n");
            }
        }
        return taken;
    };
    response.set_content_provider("multipart/x-mixed-replace; boundary=picture", show);
}

void Site::Pixels(const Request& request, Response& response)
{
    const Spot corner = SpotOf(request, "x", "y");
    const size_t width = NumberOf(request, "width", kMostSide);
    const size_t height = NumberOf(request, "height", kMostSide);
    Reply(response, PixelsJson(*PictureOf(request), corner, width, height));
}

void Site::Histogram(const Request& request, Response& response)
{
    Reply(response, HistogramJson(*PictureOf(request)));
}

void Site::Line(const Request& request, Response& response)
{
    const Spot from = SpotOf(request, "x0", "y0");
    const Spot to = SpotOf(request, "x1", "y1");
    Reply(response, LineJson(*PictureOf(request), from, to));
}

/// One by one, so that no other thread waits for the whole list.
void Site::FeatureList(const Request& request, Response& response)
{
    ViewedCamera& camera = CameraOf(request);
    std::vector<std::string> names;
    camera.WithFeatures([&](Features& features) { names = features.Names(); });
    Json all = Json::array();
    for (const std::string& name : names)
    {
        camera.WithFeatures([&](Features& features) { all.push_back(ForPage(features.Read(name))); });
    }
    Reply(response, {{"features", std::move(all)}});
}

/// Answers with the feature as it is then, and with those that it selects.
void Site::SetFeature(const Request& request, Response& response)
{
    const Setting setting{TextIn(request, "name"), TextIn(request, "value")};
    Json now;
    CameraOf(request).WithFeatures([&](Features& features) {
        features.Set(setting);
        now = ForPage(features.Read(setting.name));
    });
    Reply(response, now);
}

void Site::Execute(const Request& request, Response& response)
{
    const std::string name = TextIn(request, "name");
    CameraOf(request).WithFeatures([&](Features& features) { features.Execute(name); });
    Reply(response, Json::object());
}

void Site::Pause(const Request& request, Response& response)
{
    CameraOf(request).SetPaused(NumberOf(request, "on", 1) == 1);
    Reply(response, Json::object());
}

void Site::Record(const Request& request, Response& response)
{
    Recorder& recorder = CameraOf(request).Recording();
    NumberOf(request, "on", 1) == 1 ? recorder.Begin() : recorder.End();
    Reply(response, recorder.Json());
}

void Site::Doctor(const Request& /*request*/, Response& response)
{
    // One at a time: a process for each of many pages would take from the stream.
    const std::unique_lock alone(m_doctor, std::try_to_lock);
    if (!alone)
    {
        throw ToolFailure(ExitCode::Failure, "the doctor is at work already, for another page; ask again in a while");
    }
    Json examination = ExaminationJson(m_common);
    for (const auto& camera : m_cameras)
    {
        if (camera->HasControl())
        {
            TakeAsOwn(examination, camera->Address());
        }
    }
    Reply(response, examination);
}

} // namespace nq::tool::view

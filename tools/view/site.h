// SPDX-License-Identifier: Apache-2.0
// What the page asks for, and the answers.
#pragma once

#include "common_options.h"
#include "view/viewed_camera.h"

#include <httplib.h>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace nq::tool::view
{

/// Answers all requests. May be called from any thread; the cameras outlive it.
class Site
{
  public:
    using Request = httplib::Request;
    using Response = httplib::Response;
    using Cameras = std::vector<std::unique_ptr<ViewedCamera>>;

    Site(const CommonOptions& common, std::string token, Cameras& cameras, Bell& bell)
        : m_common(common), m_token(std::move(token)), m_cameras(cameras), m_bell(bell)
    {
    }

    /// False for one that wants its body read first.
    bool Answer(const Request& request, Response& response);

    /// The answer to one of those.
    void AnswerWithBody(const Request& request, Response& response);

  private:
    struct Route;
    static const Route* FindRoute(const std::string& method, const std::string& name);
    void Follow(const Route& route, const Request& request, Response& response);

    void Numbers(const Request& request, Response& response);
    void Pictures(const Request& request, Response& response);
    void Pixels(const Request& request, Response& response);
    void Histogram(const Request& request, Response& response);
    void Line(const Request& request, Response& response);
    void FeatureList(const Request& request, Response& response);
    void SetFeature(const Request& request, Response& response);
    void Execute(const Request& request, Response& response);
    void Pause(const Request& request, Response& response);
    void Record(const Request& request, Response& response);
    void Doctor(const Request& request, Response& response);

    ViewedCamera& CameraOf(const Request& request);
    std::shared_ptr<const ShownPicture> PictureOf(const Request& request);

    const CommonOptions& m_common;
    const std::string m_token;
    Cameras& m_cameras;
    Bell& m_bell;
    std::mutex m_doctor; ///< held by the page for which the doctor works
};

} // namespace nq::tool::view

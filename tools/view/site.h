// SPDX-License-Identifier: Apache-2.0
// What the page asks for, and the answers.
#pragma once

#include "common_options.h"
#include "view/http_server.h"
#include "view/viewed_camera.h"

#include <memory>
#include <string>
#include <vector>

namespace nq::tool::view
{

/// Answers all requests. Answer() may be called from any thread; the cameras and the server outlive it.
class Site
{
  public:
    using Cameras = std::vector<std::unique_ptr<ViewedCamera>>;

    Site(const CommonOptions& common, std::string token, Cameras& cameras, Bell& bell, const HttpServer& server)
        : m_common(common), m_token(std::move(token)), m_cameras(cameras), m_bell(bell), m_server(server)
    {
    }

    void Answer(const HttpRequest& request, HttpConnection& connection);

  private:
    struct Route;
    static const Route* FindRoute(const std::string& method, const std::string& name);

    void Numbers(const HttpRequest& request, HttpConnection& connection);
    void Pictures(const HttpRequest& request, HttpConnection& connection);
    void Pixels(const HttpRequest& request, HttpConnection& connection);
    void Histogram(const HttpRequest& request, HttpConnection& connection);
    void Line(const HttpRequest& request, HttpConnection& connection);
    void FeatureList(const HttpRequest& request, HttpConnection& connection);
    void SetFeature(const HttpRequest& request, HttpConnection& connection);
    void Execute(const HttpRequest& request, HttpConnection& connection);
    void Pause(const HttpRequest& request, HttpConnection& connection);
    void Record(const HttpRequest& request, HttpConnection& connection);
    void Doctor(const HttpRequest& request, HttpConnection& connection);

    ViewedCamera& CameraOf(const HttpRequest& request);
    std::shared_ptr<const ShownPicture> PictureOf(const HttpRequest& request);
    bool Goes(const HttpConnection& connection) const { return !m_server.IsStopping() && !connection.IsGone(); }

    const CommonOptions& m_common;
    const std::string m_token;
    Cameras& m_cameras;
    Bell& m_bell;
    const HttpServer& m_server;
};

} // namespace nq::tool::view

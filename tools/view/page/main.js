// SPDX-License-Identifier: Apache-2.0
// Puts the parts of the page together.
import { Camera } from "./camera.js";
import { Doctor } from "./doctor.js";
import { say } from "./dom.js";
import { Features } from "./features.js";
import { hearNumbers } from "./numbers.js";
import { PicturePanel } from "./picture.js";
import { showPictures } from "./pictures.js";
import { Plots } from "./plots.js";
import { makeTabs } from "./tabs.js";

const part = id => document.getElementById(id);
const cameras = [];
const features = new Features(part("features"));
const plots = new Plots(part("plots"));
const picture = new PicturePanel(part("picture"));
new Doctor(part("doctor"));
let chosen = null;

function choose(camera) {
  if (chosen === camera) {
    return;
  }
  chosen = camera;
  cameras.forEach(one => one.element.classList.toggle("chosen", one === camera));
  say(part("chosen"), camera.about?.name ?? "");
  features.choose(camera.index, camera.about?.name ?? "");
  picture.choose(camera);
}

function take(all) {
  while (cameras.length < all.length) {
    const camera = new Camera(cameras.length, choose);
    cameras.push(camera);
    part("cameras").append(camera.element);
  }
  part("cameras").classList.toggle("several", all.length > 1);
  all.forEach((about, at) => cameras[at].take(about));
  if (!chosen) {
    choose(cameras[0]);
  }
  plots.take(chosen.about);
  document.title = `${chosen.about.name} – nq-gev view`;
}

function useTheme() {
  const kept = localStorage.getItem("theme") ?? "light dark";
  const set = value => {
    document.documentElement.style.colorScheme = value;
    localStorage.setItem("theme", value);
  };
  part("theme").value = kept;
  part("theme").onchange = event => set(event.target.value);
  set(kept);
}

useTheme();
makeTabs(document.querySelector("[role=tablist]"), panel => panel === "features" ? features.refresh() : picture.refresh());
hearNumbers(take, alive => {
  say(part("link"), alive ? "" : "nq-gev does not answer any more; this page tries on, and a new nq-gev prints a new address");
  if (!alive) {
    cameras.forEach(camera => camera.doubt());
  }
});
showPictures((about, image) => cameras[about.camera]?.show(about, image));

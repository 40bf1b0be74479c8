# The field's numerical libraries, as imported targets for the plug-ins and tests that need them:
# Eigen3::Eigen (linear algebra), algo_opencv (features, image processing, machine learning),
# algo_fftw (FFTW, double and single precision, with threads), algo_libsvm (LIBSVM).
find_package(Eigen3 REQUIRED NO_MODULE)
find_package(OpenCV REQUIRED COMPONENTS core imgproc ml features2d calib3d flann)
find_package(PkgConfig REQUIRED)
pkg_check_modules(FFTW3 REQUIRED IMPORTED_TARGET fftw3 fftw3f)
find_library(FFTW3_THREADS_LIBRARY fftw3_threads REQUIRED)
find_library(FFTW3F_THREADS_LIBRARY fftw3f_threads REQUIRED)
find_library(LIBSVM_LIBRARY svm REQUIRED)
find_path(LIBSVM_INCLUDE_DIR libsvm/svm.h REQUIRED)

add_library(algo_opencv INTERFACE)
target_include_directories(algo_opencv SYSTEM INTERFACE ${OpenCV_INCLUDE_DIRS})
target_link_libraries(algo_opencv INTERFACE ${OpenCV_LIBS})

add_library(algo_fftw INTERFACE)
target_link_libraries(algo_fftw INTERFACE PkgConfig::FFTW3 ${FFTW3_THREADS_LIBRARY} ${FFTW3F_THREADS_LIBRARY})

add_library(algo_libsvm INTERFACE)
target_include_directories(algo_libsvm SYSTEM INTERFACE ${LIBSVM_INCLUDE_DIR})
target_link_libraries(algo_libsvm INTERFACE ${LIBSVM_LIBRARY})

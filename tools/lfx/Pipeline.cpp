#include "Pipeline.h"

#include <atomic>
#include <exception>
#include <memory>
#include <mutex>
#include <thread>

#include "Errors.h"
#include "Fit.h"
#include "Queues.h"
#include "Scaler.h"
#include "Signals.h"

namespace lfx {

namespace {

struct Job {
    int64_t sequence = 0;
    int frameIndex = 0;
    StreamItem item;
};

// Keeps the first failure of any thread and stops the others.
class Failure {
public:
    Failure(BoundedQueue<Job>& input, OrderedQueue<Job>& output) : input_(input), output_(output) {}

    void Record() {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            if (!error_) error_ = std::current_exception();
        }
        input_.Abort();
        output_.Abort();
    }

    void RethrowIfAny() {
        if (error_) std::rethrow_exception(error_);
    }

private:
    std::mutex mutex_;
    std::exception_ptr error_;
    BoundedQueue<Job>& input_;
    OrderedQueue<Job>& output_;
};

// Joins on every way out, so no thread outlives the queues it uses.
class ThreadGroup {
public:
    ~ThreadGroup() {
        for (std::thread& thread : threads_)
            thread.join();
    }
    template <class Body>
    void Start(Body body) {
        threads_.emplace_back(std::move(body));
    }

private:
    std::vector<std::thread> threads_;
};

void ReadSource(FrameSource& source, int64_t frameLimit, BoundedQueue<Job>& input,
                OrderedQueue<Job>& output) {
    int64_t sequence = 0;
    int frames = 0;
    while (frameLimit < 0 || frames < frameLimit) {
        CheckStop();
        Job job;
        if (!source.Next(job.item)) break;
        job.sequence = sequence++;
        if (job.item.frame) job.frameIndex = frames++;
        if (!input.Push(std::move(job))) return;
    }
    if (frames == 0) Fail(source.Info().name + " has no video frames");
    output.SetTotal(sequence);
    input.Close();
}

void ProcessFrames(EffectChain& chain, const PipelineSettings& settings, const Encoder& encoder,
                   const SourceInfo& source, BoundedQueue<Job>& input, OrderedQueue<Job>& output) {
    Scaler toLayout;
    Scaler toEncoder;
    while (std::optional<Job> job = input.Pop()) {
        if (FramePtr& frame = job->item.frame) {
            const AVColorSpace space =
                frame->colorspace != AVCOL_SPC_UNSPECIFIED ? frame->colorspace : source.colorSpace;
            frame = toLayout.Convert(std::move(frame), FfmpegFormat(settings.layout), space);
            if (!source.orientation.Identity()) frame = Orient(*frame, source.orientation);
            if (frame->width != settings.width || frame->height != settings.height) {
                frame = FitFrame(*frame, settings.width, settings.height);
            }
            chain.Apply(frame, job->frameIndex);
            frame =
                toEncoder.Convert(std::move(frame), encoder.PixelFormat(), encoder.ColorSpace());
        }
        const int64_t sequence = job->sequence;
        if (!output.Push(sequence, std::move(*job))) return;
    }
}

}  // namespace

int64_t RunPipeline(FrameSource& source, const std::vector<ChainStep>& steps, Encoder& encoder,
                    const PipelineSettings& settings, Progress& progress) {
    const int workers = settings.workers > 0 ? settings.workers : 1;
    // Chains are made here, so a refused property stops the run before any thread starts.
    std::vector<std::unique_ptr<EffectChain>> chains;
    for (int i = 0; i < workers; ++i)
        chains.push_back(std::make_unique<EffectChain>(steps));

    BoundedQueue<Job> input(2 * static_cast<size_t>(workers));
    OrderedQueue<Job> output(4 * static_cast<size_t>(workers));
    Failure failure(input, output);
    int64_t written = 0;
    {
        ThreadGroup threads;
        threads.Start([&] {
            try {
                ReadSource(source, settings.frameLimit, input, output);
            } catch (...) {
                failure.Record();
            }
        });
        for (auto& chain : chains) {
            threads.Start([&, chain = chain.get()] {
                try {
                    ProcessFrames(*chain, settings, encoder, source.Info(), input, output);
                } catch (...) {
                    failure.Record();
                }
            });
        }
        try {
            while (std::optional<Job> job = output.Pop()) {
                const bool isFrame = static_cast<bool>(job->item.frame);
                encoder.Write(job->item);
                if (isFrame) progress.Update(++written);
            }
        } catch (...) {
            failure.Record();
        }
    }
    failure.RethrowIfAny();
    return written;
}

}  // namespace lfx

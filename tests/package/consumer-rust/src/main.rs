//! Names the proxy that a session decides for.

fn main() -> Result<(), Box<dyn std::error::Error>> {
    let session = kiv::Session::builder("consumer/1").preferred("proxy.test:8080", None).test(kiv::Test::None).build()?;
    match session.resolve("http://host.test/").wait()?.route()? {
        kiv::Route::Direct => println!("direct"),
        kiv::Route::Proxy(proxy) => println!("{}", proxy.url),
    }
    Ok(())
}

import java.io.IOException;
import java.io.PrintStream;
import java.nio.file.Files;
import java.nio.file.Path;
import java.sql.Connection;
import java.sql.DriverManager;
import java.sql.SQLException;
import java.sql.Statement;
import javax.servlet.ServletConfig;
import mondrian.server.RepositoryContentFinder;
import mondrian.server.UrlRepositoryContentFinder;
import mondrian.spi.CatalogLocator;
import mondrian.xmla.impl.MondrianXmlaServlet;
import org.eclipse.jetty.server.HttpConfiguration;
import org.eclipse.jetty.server.HttpConnectionFactory;
import org.eclipse.jetty.server.Server;
import org.eclipse.jetty.server.ServerConnector;
import org.eclipse.jetty.servlet.ServletHandler;
import org.eclipse.jetty.servlet.ServletHolder;
import org.eclipse.jetty.util.thread.QueuedThreadPool;

/**
 * Serves the cubes of one folder over XML for Analysis: a Mondrian servlet in Jetty, on a free port
 * of the loopback address, over a database in memory.
 *
 * <p>The folder (the only argument) holds datasources.xml, the schema files that it names, and
 * database.sql. One line on standard output, the service's address, says that requests are
 * answered. The server ends when its standard input ends, so it never outlives whoever started it.
 */
public final class MondrianServer {
  private MondrianServer() {}

  public static void main(String[] arguments) throws Exception {
    if (arguments.length != 1) {
      System.err.println("usage: MondrianServer FOLDER");
      System.exit(2);
    }
    Path folder = Path.of(arguments[0]).toAbsolutePath();
    // Libraries print greetings on standard output, which is only for the URL.
    PrintStream output = System.out;
    System.setOut(System.err);

    // The in-memory database exists until this process ends.
    try (Connection database = DriverManager.getConnection("jdbc:hsqldb:mem:skylark", "SA", "")) {
      run(database, folder.resolve("database.sql"));
    }

    Server server = new Server(new QueuedThreadPool(16));
    HttpConfiguration configuration = new HttpConfiguration();
    configuration.setSendServerVersion(false);
    ServerConnector connector =
        new ServerConnector(server, 1, 1, new HttpConnectionFactory(configuration));
    connector.setHost("127.0.0.1");
    connector.setPort(0);
    server.addConnector(connector);
    ServletHandler handler = new ServletHandler();
    ServletHolder holder = new ServletHolder(new FolderServlet(folder));
    holder.setInitOrder(1);
    handler.addServletWithMapping(holder, "/xmla");
    server.setHandler(handler);
    server.start();
    output.println("http://127.0.0.1:" + connector.getLocalPort() + "/xmla");
    output.flush();

    while (System.in.read() >= 0) {
      // Ignores the input and waits for its end.
    }
    // There is nothing to save, and an orderly stop would wait for idle connections.
    Runtime.getRuntime().halt(0);
  }

  /** Runs the statements of a file: each ends with a semicolon at the end of a line. */
  private static void run(Connection database, Path file) throws IOException, SQLException {
    String text = Files.readString(file).replaceAll("(?m)^--.*$", "");
    try (Statement statement = database.createStatement()) {
      for (String sql : text.split(";\\s*\\n")) {
        if (!sql.isBlank()) {
          statement.execute(sql);
        }
      }
    }
  }

  /** Mondrian's servlet, with its configuration and schemas taken from a folder. */
  private static final class FolderServlet extends MondrianXmlaServlet {
    private final transient Path folder;

    FolderServlet(Path folder) {
      this.folder = folder;
    }

    @Override
    protected String makeDataSourcesUrl(ServletConfig configuration) {
      return folder.resolve("datasources.xml").toUri().toString();
    }

    @Override
    protected RepositoryContentFinder makeContentFinder(String url) {
      return new UrlRepositoryContentFinder(url);
    }

    @Override
    protected CatalogLocator makeCatalogLocator(ServletConfig configuration) {
      return path -> folder.resolve(path).toUri().toString();
    }
  }
}
